#include "velainfo/container_tracks.hpp"

#include "common/child_process.hpp"
#include "common/failure.hpp"
#include "input/input_file.hpp"
#include "parser/frame_scanner.hpp"
#include "velainfo/container_kind.hpp"
#include "velainfo/stream_input.hpp"

#include <algorithm>
#include <array>
#include <sstream>
#include <system_error>

namespace tools {
namespace {

std::string output_of(child_process &child) {
    input_file pipe{.handle = child.take_output(), .name = "ffprobe's output"};
    std::string text;
    std::array<char, 4096> room;
    while (const std::size_t got = read_some(pipe, std::as_writable_bytes(std::span(room))))
        text.append(room.data(), got);
    return text;
}

bool is_container(const input_file &file) {
    std::array<char, 512> head;
    const std::size_t size = read_at(file, 0, std::as_writable_bytes(std::span(head)));
    return !container_of({head.data(), size}).name.empty();
}

/// MP4 and Flash have one name for all layers. @return whether the track's are I or II
bool holds_frames(const stream_name &track) {
    stream_input input(track);
    std::size_t left = std::size_t{1} << 16; // all of Layer III would be searched
    frame_scanner scanner([&](std::span<std::uint8_t> room) {
        const std::size_t size = input.read(room.first(std::min(room.size(), left)));
        left -= size;
        return size;
    });
    while (const auto piece = scanner.next())
        if (piece->is_frame) return true;
    return false;
}

} // namespace

std::vector<std::string> copy_command(const std::string &file, const std::string &track) {
    return {"ffmpeg",     "-v", "error", "-nostdin", "-i",   file, "-map",
            "0:" + track, "-c", "copy",  "-f",       "data", "-"};
}

std::vector<stream_name> streams_of(const std::string &path) {
    std::vector<stream_name> found;
    try {
        if (path == "-") return {stream_name(path)};
        const input_file file = open_input(path);
        if (!file.seekable() || !is_container(file)) return {stream_name(path)};
        const std::vector<std::string> words{"ffprobe",
                                             "-v",
                                             "error",
                                             "-select_streams",
                                             "a",
                                             "-show_entries",
                                             "stream=index,codec_name",
                                             "-of",
                                             "csv=p=0",
                                             child_process::handed_file};
        child_process child(words, file.handle.get());
        std::istringstream lines(output_of(child));
        int track = 0;
        std::string line;
        while (std::getline(lines, line)) {
            std::istringstream fields(line);
            std::string codec;
            char comma = 0;
            fields >> track >> comma >> codec;
            const bool is_known =
                std::ranges::any_of(found, [&](const stream_name &s) { return s.track == track; });
            const bool is_ours =
                codec.starts_with("mp1") || codec.starts_with("mp2")
                || (codec.starts_with("mp3") && holds_frames(stream_name(path, track)));
            if (is_ours && !is_known) found.emplace_back(path, track);
        }
        child.wait();
    } catch (const failure &) {
    } catch (const std::system_error &) { // no ffprobe
    }
    return found.empty() ? std::vector{stream_name(path)} : found;
}

} // namespace tools
