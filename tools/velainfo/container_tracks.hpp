// The streams inside containers such as films, which ffmpeg takes out without decoding them.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tools {

/// A stream to look at: a file, or a track of one.
struct stream_name {
    std::string path;         ///< "-" is standard input
    std::optional<int> track; ///< as ffmpeg counts; none: the file itself

    explicit stream_name(std::string file, std::optional<int> number = {})
        : path(std::move(file)), track(number) {}
};

/// Every track of MPEG audio, Layer I or II, where the file is a container that ffprobe can tell; the file
/// itself otherwise, whose reader says why not.
std::vector<stream_name> streams_of(const std::string &path);

/// What ffmpeg is started with to copy a track to its standard output.
std::vector<std::string> copy_command(const std::string &file, const std::string &track);

} // namespace tools
