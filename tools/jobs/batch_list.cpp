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
    if (!lines.eof() || lines.bad())
        throw failure(exit_code::input, "cannot read the list of files " + list);
}

std::vector<found_file> find_inputs(const batch_plan &plan) {
    std::vector<found_file> found;
    const auto add_file = [&](const std::string &name, const std::string &base) {
        found.push_back(
            {name, base.empty() ? fs::path(name).filename().string() : path_below(name, base), {}});
    };
    const auto add = [&](const std::string &name, const std::string &base) {
        std::error_code unknown;
        if (!plan.recursive || !fs::is_directory(name, unknown)) return add_file(name, base);
        walk(name, plan.folder,
             {[&](const std::string &path) {
                  found.push_back({path, path_below(path, name), {}});
              },
              [&](const std::string &path, const std::string &why) {
                  found.push_back({path, path_below(path, name), "cannot read the folder: " + why});
              }});
    };
    for (const auto &name : plan.names)
        add(name, plan.base);
    std::vector<std::string> listed;
    for (const auto &list : plan.lists)
        read_list(list, plan.zero_ended ? '\0' : '\n', listed);
    for (const auto &name : listed)
        add(name, plan.base.empty() ? "." : plan.base);
    return found;
}

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

std::string output_of(const batch_plan &plan, const std::string &below) {
    const std::string name = expand(plan, below);
    if (name.starts_with("..") || name.empty() || name.ends_with('/') || name == ".")
        throw failure(exit_code::usage, "--name '" + plan.pattern + "' gives '" + name
                                            + "', which is no file below --output-dir");
    return (fs::path(plan.folder) / name).string();
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
        const auto [first, is_new] = outputs.emplace(file.output, &file);
        if (!is_new)
            throw failure(exit_code::usage, first->second->input + " and " + file.input
                                                + " would both become " + file.output
                                                + "; --name '{dir}/{name}.{ext}' keeps the names apart,"
                                                  " --base FOLDER the folders");
        if (::stat(file.input.c_str(), &status) == 0) inputs.emplace(status.st_dev, status.st_ino);
    }
    for (const auto &file : files)
        if (::stat(file.output.c_str(), &status) == 0
            && inputs.contains({status.st_dev, status.st_ino}))
            throw failure(exit_code::usage, file.output + " is an input of this batch; name another"
                                                + " --output-dir or --name");
}

} // namespace

std::vector<batch_file> list_files(const batch_plan &plan) {
    std::vector<batch_file> files, own;
    std::set<std::string> known;
    for (const auto &[path, below, error] : find_inputs(plan)) {
        const std::string output = error.empty() ? output_of(plan, below) : path;
        // A file that is named twice, or beside its folder, is one file.
        if (!known.insert(fs::path(path).lexically_normal().string() + '\0' + output).second) continue;
        std::error_code unknown;
        const auto bytes = fs::file_size(path, unknown);
        files.push_back({path, output, unknown ? 0 : bytes, error});
        if (hash_of(below) % plan.shard.count + 1 == plan.shard.index) own.push_back(files.back());
    }
    refuse_conflicts(files);
    return own;
}

} // namespace tools
