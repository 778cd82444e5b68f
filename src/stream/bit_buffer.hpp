// Bits of one frame, gathered before they go to the host's block.
#pragma once

#include "stream/rate_tables.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vela {

/// Packs bit fields, most significant bit first, into a buffer of its own that holds any frame.
///
/// Packing here and copying the bytes once costs a few nanoseconds a frame; in return the bit-level
/// code needs no checks for the end of a block that the host chose.
class bit_buffer {
  public:
    bit_buffer() noexcept = default;

    /// Appends the low n bits of value, n = 0..32.
    void put(std::uint32_t value, int n) noexcept {
        accumulator_ = accumulator_ << n | (value & ((std::uint64_t{1} << n) - 1));
        pending_ += n;
        if (pending_ >= 32) {
            pending_ -= 32;
            const std::uint32_t word =
                __builtin_bswap32(static_cast<std::uint32_t>(accumulator_ >> pending_));
            std::memcpy(bytes_ + size_, &word, sizeof word);
            size_ += sizeof word;
        }
    }

    /// Appends n zero bits; nothing for n <= 0.
    void put_zeros(int n) noexcept {
        for (; n > 32; n -= 32)
            put(0, 32);
        if (n > 0) put(0, n);
    }

    /// Appends zero bits up to the next byte boundary.
    void align() noexcept { put_zeros((8 - pending_ % 8) % 8); }

    /// Moves whole pending bytes to the buffer, so that bytes() holds all but the last 0..7 bits.
    void settle() noexcept {
        while (pending_ >= 8) {
            pending_ -= 8;
            bytes_[size_++] = static_cast<std::uint8_t>(accumulator_ >> pending_);
        }
    }

    const std::uint8_t *bytes() const noexcept { return bytes_; }
    std::size_t size() const noexcept { return size_; }

    /// Drops the bytes; pending bits stay.
    void clear_bytes() noexcept { size_ = 0; }

  private:
    std::uint64_t accumulator_ = 0;
    int pending_ = 0; ///< low bits of the accumulator not yet in bytes_
    std::size_t size_ = 0;
    std::uint8_t bytes_[max_frame_bytes + 16];
};

} // namespace vela
