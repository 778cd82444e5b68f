// The encoder's host for output: lends it memory and keeps its frames until somebody takes them.
#pragma once

#include "vela_enc_mp1a/bufstream.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tools {

/// Frames stay where they are encoded:
///
///     bytes_   | frame | frame | frame | block lent to the encoder |        |
///              0                       filled_                     + chunk
class frame_buffer : private bufstream {
  public:
    /// @param frames  room, for frames of any length
    explicit frame_buffer(std::size_t frames);
    frame_buffer(const frame_buffer &) = delete;
    frame_buffer &operator=(const frame_buffer &) = delete;

    bufstream *stream() noexcept { return this; }

    std::span<const std::uint8_t> bytes() const noexcept { return std::span(bytes_).first(filled_); }
    std::span<const frame_info> frames() const noexcept { return frames_; }

    void clear() noexcept;

    /// Trades frames and memory with another buffer, between two frames; encoders stay with the object
    /// that they were bound to.
    void exchange(frame_buffer &other) noexcept;

  private:
    static std::uint8_t *lend(bufstream *self, std::uint32_t n) noexcept;
    static std::uint32_t take(bufstream *self, std::uint32_t n) noexcept;
    static std::uint32_t chunk_bytes(bufstream *self) noexcept;
    static std::uint32_t note(bufstream *self, std::uint32_t offset, std::uint32_t id, const void *data,
                              std::uint32_t size) noexcept;

    std::vector<std::uint8_t> bytes_;
    std::size_t filled_ = 0;
    std::vector<frame_info> frames_; ///< never grows beyond what was reserved
};

} // namespace tools
