#include "velainfo/input_list.hpp"

#include "common/failure.hpp"
#include "input/container.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace tools {
namespace {

namespace fs = std::filesystem;

constexpr unsigned wave_format_mpeg = 0x50;

/// A file that is named as a stream is, or a WAV file with one in it.
bool is_stream(const fs::path &path) {
    std::string extension = path.extension();
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const char *name : {".mp1", ".mp2", ".mpa", ".m1a", ".m2a", ".mpga"})
        if (extension == name) return true;
    if (extension != ".wav" && extension != ".bwf" && extension != ".rf64") return false;
    try {
        const input_file file = open_input(path);
        return file.seekable() && wav_format(fetch_from(file)) == wave_format_mpeg;
    } catch (const failure &) {
        return true; // whoever looks at it says why not
    }
}

void add_folder(const std::string &folder, std::vector<std::string> &inputs) {
    std::vector<std::string> found;
    std::error_code error;
    fs::recursive_directory_iterator entry(folder, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error))
        if (entry->is_regular_file(error) && is_stream(entry->path())) found.push_back(entry->path());
    if (error)
        throw failure(exit_code::input, "cannot read the folder " + folder + ": " + error.message());
    std::ranges::sort(found);
    inputs.insert(inputs.end(), found.begin(), found.end());
}

} // namespace

std::vector<std::string> list_inputs(const info_options &wanted) {
    std::vector<std::string> names = wanted.inputs, inputs;
    for (const std::string &list : wanted.lists) {
        std::ifstream file;
        if (list != "-") file.open(list);
        std::istream &lines = list == "-" ? std::cin : file;
        for (std::string name; std::getline(lines, name);)
            if (!name.empty()) names.push_back(name);
        if (!lines.eof() || lines.bad())
            throw failure(exit_code::input, "cannot read the list " + list);
    }
    for (const std::string &name : names) {
        if (wanted.recursive && fs::is_directory(name))
            add_folder(name, inputs);
        else
            inputs.push_back(name);
    }
    if (inputs.empty())
        throw failure(exit_code::input, "there is no stream of MPEG audio, Layer I or II");
    if (!wanted.html.empty() && inputs.size() > most_drawn)
        throw failure(exit_code::usage, "--html draws at most " + std::to_string(most_drawn)
                                            + " streams one above the other; these are "
                                            + std::to_string(inputs.size()));
    return inputs;
}

} // namespace tools
