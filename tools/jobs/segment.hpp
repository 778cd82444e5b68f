// A run of whole frames that is encoded on its own, wherever it lies in the stream.
#pragma once

#include "jobs/clip_count.hpp"
#include "output/frame_buffer.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tools {

///     pcm   | history: the frames before | the segment's frames | only in the last one: part of a frame |
///           0                            history_bytes
struct segment {
    /// @param room  frames at most
    explicit segment(std::size_t room) : frames(room) {}

    bool is_empty() const noexcept { return pcm.size() == history_bytes; }

    std::int64_t first_frame = 0;
    std::size_t pcm_bytes = 0; ///< that a thread of the crew is to read; 0: `pcm` is there
    std::vector<std::byte> pcm;
    std::size_t history_bytes = 0;
    bool last = false;    ///< the stream ends with it
    frame_buffer frames;  ///< what came out
    clip_count clipped;   ///< without the history
    bool is_sound = true; ///< what the crew was to read could be read
    bool done = false;    ///< `frames` is complete
};

} // namespace tools
