// The writer between the frame packer and the host's bufstream.
#pragma once

#include "stream/bit_buffer.hpp"
#include "vela_enc_mp1a/bufstream.h"

#include <cstddef>
#include <cstdint>

namespace vela {

/// Stores the bytes of frames in blocks borrowed from a bufstream and hands them back frame by frame.
///
///     block_                 position_                       capacity_
///     v                      v                               v
///     +----------------------+-------------------------------+
///     | finished bytes       | room                          |
///     +----------------------+-------------------------------+
///
/// While a block is held, position_ < capacity_ after every operation. A failure (a refused request, a
/// short commit) sticks: bytes are dropped and only counted, and every request for space fails until
/// the writer is bound again. So the packer checks nothing and the encode loop asks once per frame.
///
/// To be used while a float_environment lives: it is renewed after every call of the host's.
class bit_writer {
  public:
    /// Starts afresh on `stream` and requests the first block; a block held before is given up without
    /// a commit.
    void bind(bufstream *stream) noexcept;

    /// Makes sure that a frame of n bytes fits in the current block.
    /// @return false when the output has failed or its blocks are shorter than the frame
    bool request_frame(std::uint32_t n) noexcept;

    /// Makes sure that n more bytes fit in the current block, or else commits it and starts a new one.
    /// @return false when the output has failed
    bool request_space(std::uint32_t n) noexcept { return request(n, 0); }

    /// Reports `info` to the host and writes the header word, most significant byte first.
    void put_header_word(std::uint32_t word, const header_info &info) noexcept;

    /// Takes the whole bytes out of `bits`; the last 0..7 bits stay in there.
    void put(bit_buffer &bits) noexcept;

    /// Commits the frame and reports `info` to the host.
    void end_frame(const frame_info &info) noexcept;

    /// Every bit written since binding, dropped ones included.
    std::uint64_t total_bits() const noexcept { return total_bits_; }

  private:
    template <class Slot, class... Arguments>
    std::uint32_t call(Slot slot, Arguments... arguments) noexcept;

    bool request(std::uint32_t n, std::uint32_t shortest_block) noexcept;
    void lend(std::uint32_t shortest) noexcept;
    void end_block() noexcept;
    void refused(std::uint32_t capacity) noexcept;
    void store(const std::uint8_t *bytes, std::size_t n) noexcept;

    bufstream *stream_;
    std::uint8_t *block_;
    std::uint32_t capacity_;
    std::uint32_t position_;
    std::uint64_t total_bits_;
    bool error_;
};

} // namespace vela
