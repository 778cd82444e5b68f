// Cuts a source into segments.
#pragma once

#include "input/pcm_source.hpp"
#include "jobs/segment.hpp"

#include <exception>

namespace tools {

/// A segment is begun, read into until somebody finds it long enough, and cut after its last whole
/// frame. What lies behind the cut starts the next one.
class segment_reader {
  public:
    /// @param frame_samples  a channel
    segment_reader(pcm_source &source, std::size_t frame_samples, std::size_t most_frames);

    void begin(segment &next) const;

    /// Goes on behind that many full segments.
    void skip(std::uint64_t segments);

    /// Takes a block, or the part of it that still belongs to the segment. Returns false at the end of
    /// the source, also where that comes by an error.
    bool read(segment &next);

    void cut(segment &next);

    bool is_full(const segment &next) const noexcept;
    bool has_frames(const segment &next) const noexcept;

    /// The next read() will not have to wait longer than that.
    bool ready_before(std::chrono::steady_clock::time_point time) const;

    /// Samples a channel, read so far.
    std::uint64_t samples() const noexcept { return samples_; }

    /// @throws failure when the source did
    void check() const;

  private:
    std::size_t whole_frames(const segment &next) const noexcept;

    pcm_source &source_;
    std::size_t frame_bytes_;
    std::size_t most_frames_;
    std::span<const std::byte> block_; ///< what is left of the source's last one
    std::vector<std::byte> carried_;   ///< the history for the next segment, then the part of a frame
    std::size_t history_bytes_ = 0;    ///< at the start of carried_
    std::int64_t next_frame_ = 0;
    std::uint64_t samples_ = 0;
    std::exception_ptr error_;
};

} // namespace tools
