// The encoder's host for output: lends it memory and gathers its frames for large writes.
#pragma once

#include "output_file.hpp"
#include "timestamp_list.hpp"
#include "vela_enc_mp1a/bufstream.h"

#include <cstdint>
#include <vector>

namespace velaenc {

/// Frames are encoded where they are written from:
///
///     buffer_   | frame | frame | frame | block lent to the encoder |        |
///               0                       filled_                     + chunk
class frame_writer : private bufstream {
  public:
    /// @param list  where the frames are listed; may be null
    frame_writer(output_file &file, timestamp_list *list);
    frame_writer(const frame_writer &) = delete;
    frame_writer &operator=(const frame_writer &) = delete;

    bufstream *stream() noexcept { return this; }

    /// Writes the finished frames. Returns whether the output works.
    bool flush() noexcept;

    std::uint64_t frames() const noexcept { return frames_; }

  private:
    static std::uint8_t *lend(bufstream *self, std::uint32_t n) noexcept;
    static std::uint32_t take(bufstream *self, std::uint32_t n) noexcept;
    static std::uint32_t chunk_bytes(bufstream *self) noexcept;
    static std::uint32_t note(bufstream *self, std::uint32_t offset, std::uint32_t id, const void *data,
                              std::uint32_t size) noexcept;

    output_file &file_;
    timestamp_list *list_;
    std::vector<std::uint8_t> buffer_;
    std::size_t filled_ = 0;
    bool works_ = true;
    std::uint64_t frames_ = 0;
    std::uint64_t bytes_ = 0; ///< of all frames reported so far
};

} // namespace velaenc
