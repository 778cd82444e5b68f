#include "input/sound_files.hpp"

#include "common/failure.hpp"
#include "input/container.hpp"
#include "input/open_pcm.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <string_view>
#include <vector>

namespace tools {
namespace {

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 45> extensions{
    ".wav", ".wave", ".bwf", ".w64",  ".rf64", ".aif", ".aiff", ".aifc", ".caf",
    ".au",  ".snd",  ".voc", ".nist", ".sph",  ".svx", ".8svx", ".flac", ".ogg",
    ".oga", ".opus", ".spx", ".mpa",  ".m1a",  ".m2a", ".mp1",  ".mp2",  ".mp3",
    ".aac", ".m4a",  ".m4b", ".mp4",  ".mov",  ".mka", ".mkv",  ".webm", ".wma",
    ".wv",  ".ape",  ".tta", ".tak",  ".ac3",  ".ec3", ".eac3", ".dts",  ".amr"};

/// What sound files begin with: a name and, where that is not enough, another one at byte 8.
struct beginning {
    std::string_view first, second;
};

constexpr std::array<beginning, 14> beginnings{{{"RIFF", "WAVE"},
                                                {"RIFX", "WAVE"},
                                                {"RF64", "WAVE"},
                                                {"BW64", "WAVE"},
                                                {"riff\x2E\x91\xCF\x11", ""},
                                                {"FORM", "AIFF"},
                                                {"FORM", "AIFC"},
                                                {"FORM", "8SVX"},
                                                {"caff", ""},
                                                {".snd", ""},
                                                {"fLaC", ""},
                                                {"OggS", ""},
                                                {"NIST_1A", ""},
                                                {"Creative Voice File", ""}}};

bool begins_like_sound(const input_file &input) {
    std::array<char, 32> head{};
    read_at(input, 0, std::as_writable_bytes(std::span(head)));
    const std::string_view text(head.data(), head.size());
    return std::ranges::any_of(beginnings, [&](const beginning &each) {
        return text.starts_with(each.first) && text.substr(8).starts_with(each.second);
    });
}

/// By the way that encodes it, so that nothing is found which that refuses to look at.
bool can_be_read(input_file input) {
    try {
        open_pcm(std::move(input), {});
        return true;
    } catch (const failure &) {
        return false;
    }
}

bool is_same_folder(const fs::path &a, const std::string &b) {
    std::error_code different;
    return !b.empty() && fs::equivalent(a, b, different) && !different;
}

void visit(const fs::directory_entry &entry, const std::string &left_out,
           const walk_listener &listener) {
    std::error_code unknown;
    const std::string path = entry.path();
    if (entry.is_directory(unknown)) {
        if (!entry.is_symlink(unknown)) return walk(path, left_out, listener);
        listener.linked(path);
    } else if (!entry.exists(unknown) || entry.is_regular_file(unknown)) {
        (is_sound_file(path) ? listener.sound : listener.other)(path);
    } else if (has_sound_name(path)) {
        listener.unreadable(path,
                            "is a pipe, a socket or a device, which a search does not open; name it");
    } else {
        listener.other(path);
    }
}

} // namespace

std::string lower_extension(const std::string &path) {
    std::string extension = fs::path(path).extension();
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char each) { return std::tolower(each); });
    return extension;
}

bool has_sound_name(const std::string &path) {
    return std::ranges::find(extensions, lower_extension(path)) != extensions.end();
}

bool is_sound_file(const std::string &path) {
    if (has_sound_name(path)) return true;
    std::error_code error;
    if (fs::file_size(path, error) == 0 || error == std::errc::no_such_file_or_directory) return false;
    try {
        input_file input = open_input(path);
        return begins_like_sound(input) || can_be_read(std::move(input));
    } catch (const failure &) {
        return true;
    }
}

void walk(const std::string &folder, const std::string &left_out, const walk_listener &listener) {
    if (is_same_folder(folder, left_out)) return;
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        entries.push_back(*it);
    if (error) listener.unreadable(folder, "is a folder that cannot be read: " + error.message());
    std::ranges::sort(entries);
    for (const auto &entry : entries)
        visit(entry, left_out, listener);
}

} // namespace tools
