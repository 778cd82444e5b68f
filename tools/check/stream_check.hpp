// A finished stream held against the sound that it was made of.
#pragma once

#include "check/sound_sums.hpp"
#include "input/pcm_source.hpp"

#include <functional>
#include <string>
#include <vector>

namespace tools {

struct finished_stream {
    /// Reads at an offset; fewer bytes come at the end. Any thread may call it.
    std::function<std::size_t(std::uint64_t offset, std::span<std::byte> room)> read;
    std::uint64_t begin; ///< of the first frame
    std::uint64_t bytes; ///< of all frames
    std::uint64_t frames;
    int layer;
    int rate; ///< Hz
    int channels;
    bool intensity; ///< joint stereo

    std::uint64_t frame_samples() const noexcept { return layer == 1 ? 384 : 1152; }
};

struct check_result {
    std::size_t channels;
    std::vector<second_sums>
        seconds;      ///< of every channel in turn; the last one is up to two seconds long
    over_count overs; ///< of the decoded sound

    /// dB of a second, all channels together.
    std::optional<double> second(std::size_t index) const noexcept;
    /// dB of everything.
    std::optional<double> whole() const noexcept;
    std::size_t count() const noexcept { return seconds.size() / channels; }
};

/// Reads every frame and decodes it with libmpg123. The result does not depend on the number of jobs.
/// @param source   what the encoder was given, not read yet
/// @param samples  a channel, of the source
/// @param jobs     threads at most, this one among them
/// @throws failure (exit_code::internal) when a frame cannot be read, or when the decoded sound is not the source's
///         or comes at another time; other codes when the stream or the source cannot be read
check_result check_stream(const finished_stream &stream, pcm_source &source, std::uint64_t samples,
                          int jobs);

} // namespace tools
