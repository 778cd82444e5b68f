#include "input/sound_files.hpp"

#include "common/failure.hpp"
#include "input/input_file.hpp"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sndfile.h>
#include <vector>

namespace tools {
namespace {

namespace fs = std::filesystem;

bool is_same_folder(const fs::path &a, const std::string &b) {
    std::error_code different;
    return !b.empty() && fs::equivalent(a, b, different) && !different;
}

void visit(const fs::directory_entry &entry, const std::string &left_out,
           const walk_listener &listener) {
    std::error_code unknown;
    if (entry.is_directory(unknown)) {
        if (!entry.is_symlink(unknown)) walk(entry.path(), left_out, listener);
    } else if (entry.is_regular_file(unknown) && is_sound_file(entry.path())) {
        listener.sound(entry.path());
    }
}

} // namespace

bool is_sound_file(const std::string &path) {
    input_file input;
    try {
        input = open_input(path);
    } catch (const failure &) {
        std::error_code unknown;
        return fs::file_size(path, unknown) != 0;
    }
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, decltype(&sf_close)> file(
        sf_open_fd(input.handle.get(), SFM_READ, &info, SF_FALSE), sf_close);
    return file != nullptr;
}

void walk(const std::string &folder, const std::string &left_out, const walk_listener &listener) {
    if (is_same_folder(folder, left_out)) return;
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        entries.push_back(*it);
    if (error) listener.unreadable_folder(folder, error.message());
    std::ranges::sort(entries);
    for (const auto &entry : entries)
        visit(entry, left_out, listener);
}

} // namespace tools
