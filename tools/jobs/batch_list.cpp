#include "jobs/batch_list.hpp"

#include "common/failure.hpp"
#include "input/sound_files.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sys/stat.h>

namespace tools {
namespace {

namespace fs = std::filesystem;

/// An input and its path below the folder that it was found in.
struct found_file {
    std::string path, below, error;
};

/// The path below a folder; for a file that is elsewhere just its name.
std::string path_below(const std::string &file, const std::string &folder) {
    std::error_code unknown;
    const auto below = fs::absolute(file, unknown)
                           .lexically_normal()
                           .lexically_relative(fs::absolute(folder, unknown).lexically_normal());
    const bool is_there = !below.empty() && *below.begin() != "..";
    return is_there ? below.string() : fs::path(file).filename().string();
}

void read_list(const std::string &list, char end, std::vector<std::string> &names) {
    std::ifstream file;
    if (list != "-") file.open(list);
    std::istream &lines = list == "-" ? std::cin : file;
    std::string name;
    while (std::getline(lines, name, end))
        if (!name.empty()) names.push_back(name);
    if (!lines.eof()) throw failure(exit_code::input, "cannot read the list of files " + list);
}

/// Everything that a plan names, and what a search comes by.
class input_search {
  public:
    explicit input_search(const batch_plan &plan) : plan_(plan) {
        for (const auto &name : plan.names)
            add(name, plan.base);
        std::vector<std::string> listed;
        for (const auto &list : plan.lists)
            read_list(list, plan.zero_ended ? '\0' : '\n', listed);
        for (const auto &name : listed)
            add(name, plan.base.empty() ? "." : plan.base);
        if (in_vain_ > 0 && in_vain_ == found.size())
            throw failure(exit_code::input, found.front().error);
    }

    std::vector<found_file> found;
    std::size_t others = 0, linked_folders = 0;

  private:
    void add(const std::string &name, const std::string &base) {
        std::error_code unknown;
        if (plan_.recursive && fs::is_directory(name, unknown)) return search(name);
        found.push_back(
            {name, base.empty() ? fs::path(name).filename().string() : path_below(name, base), {}});
    }

    void search(const std::string &folder) {
        std::error_code unknown;
        if (fs::equivalent(folder, plan_.folder, unknown))
            throw failure(exit_code::usage, folder
                                                + " is searched and is the --output-dir too, where"
                                                  " nothing is searched; name another --output-dir");
        const std::size_t before = found.size();
        walk(folder, plan_.folder,
             {.sound =
                  [&](const std::string &path) {
                      found.push_back({path, path_below(path, folder), {}});
                  },
              .other = [&](const std::string &) { ++others; },
              .linked = [&](const std::string &) { ++linked_folders; },
              .unreadable =
                  [&](const std::string &path, const std::string &why) {
                      found.push_back({path, path_below(path, folder), path + ' ' + why});
                  }});
        if (found.size() > before) return;
        found.push_back({folder, "", folder + " has no sound file below it; is it the right folder?"});
        ++in_vain_;
    }

    const batch_plan &plan_;
    std::size_t in_vain_ = 0; ///< folders without a sound file
};

std::string expand(const batch_plan &plan, const fs::path &below) {
    const std::map<std::string, std::string> fields{{"dir", below.parent_path().string()},
                                                    {"stem", below.stem().string()},
                                                    {"name", below.filename().string()},
                                                    {"ext", plan.extension}};
    std::string name, rest = plan.pattern;
    for (auto open = rest.find('{'); open != std::string::npos; open = rest.find('{')) {
        const auto close = rest.find('}', open);
        const auto field = fields.find(rest.substr(open + 1, close - open - 1));
        if (close == std::string::npos || field == fields.end())
            throw failure(exit_code::usage, "--name '" + plan.pattern + "' has a field that does not"
                                                + " exist; there are " + pattern_fields);
        name += rest.substr(0, open) + field->second;
        rest.erase(0, close + 1);
    }
    // An empty {dir} must not make the name an absolute one.
    return fs::path("./" + name + rest).lexically_normal().string();
}

bool is_file_below(const fs::path &name) {
    return name.has_filename() && name != "." && *name.begin() != "..";
}

/// A pattern that makes no name below the folder of an ordinary file.
void check_pattern(const batch_plan &plan) {
    if (const auto name = expand(plan, "folder/file.wav"); !is_file_below(name))
        throw failure(exit_code::usage, "--name '" + plan.pattern + "' gives '" + name
                                            + "', which is no file below --output-dir");
}

batch_file file_of(const batch_plan &plan, const found_file &found) {
    std::error_code unknown;
    const auto bytes = fs::file_size(found.path, unknown);
    batch_file file{found.path, "", unknown ? 0 : bytes, found.error};
    if (!file.error.empty()) return file;
    const std::string name = expand(plan, found.below);
    if (is_file_below(name))
        file.output = (fs::path(plan.folder) / name).string();
    else
        file.error = found.path + " would become '" + name + "', which is no file below --output-dir";
    return file;
}

/// FNV-1a of 64 bits, the same on every machine.
std::uint64_t hash_of(const std::string &name) {
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const char each : name)
        hash = (hash ^ static_cast<unsigned char>(each)) * 0x100000001B3;
    return hash;
}

/// Over all shards, so that each of them refuses what any of them would.
void refuse_conflicts(const std::vector<batch_file> &files) {
    std::map<std::string, const batch_file *> outputs;
    std::set<std::pair<dev_t, ino_t>> inputs;
    struct stat status {};
    for (const auto &file : files) {
        if (file.output.empty()) continue;
        const auto [first, is_new] = outputs.emplace(file.output, &file);
        if (!is_new)
            throw failure(exit_code::usage, first->second->input + " and " + file.input
                                                + " would both become " + file.output
                                                + "; --name '{dir}/{name}.{ext}' keeps the names apart,"
                                                  " --base FOLDER the folders");
        if (::stat(file.input.c_str(), &status) == 0) inputs.emplace(status.st_dev, status.st_ino);
    }
    for (const auto &file : files)
        if (!file.output.empty() && ::stat(file.output.c_str(), &status) == 0
            && inputs.contains({status.st_dev, status.st_ino}))
            throw failure(exit_code::usage, file.output + " is an input of this batch; name another"
                                                + " --output-dir or --name");
}

} // namespace

batch_contents list_files(const batch_plan &plan) {
    check_pattern(plan);
    const input_search search(plan);
    batch_contents contents{{}, search.others, search.linked_folders};
    std::vector<batch_file> all;
    std::set<std::string> known;
    for (const auto &found : search.found) {
        auto file = file_of(plan, found);
        // A file that is named twice, or beside its folder, is one file.
        if (!known.insert(fs::path(file.input).lexically_normal().string() + '\0' + file.output).second)
            continue;
        all.push_back(file);
        if (hash_of(found.below) % plan.shard.count + 1 == plan.shard.index)
            contents.files.push_back(std::move(file));
    }
    refuse_conflicts(all);
    return contents;
}

} // namespace tools
