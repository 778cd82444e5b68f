// Bits of one frame, gathered before they go to the host's block.
#pragma once

#include "stream/rate_tables.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vela {

/// Where the next bit goes. A loop that packs many fields keeps a copy of its own, which the compiler
/// can hold in registers; kernels of any level may use it, as put never becomes a function of its own.
class bit_cursor {
  public:
    /// A field of this width fits behind up to seven pending bits.
    static constexpr unsigned max_bits = 56;

    /// Appends the low n bits of value, n = 0..max_bits; the bits above them are zero.
    ///
    /// Without a branch: all pending bits are stored every time, and the position moves on by the whole
    /// bytes among them.
    [[gnu::always_inline]] void put(std::uint64_t value, unsigned n) noexcept {
        pending_ += n;
        accumulator_ |= value << 1 << (63 - pending_);
        const std::uint64_t stored = __builtin_bswap64(accumulator_);
        std::memcpy(next_, &stored, sizeof stored);
        next_ += pending_ / 8;
        accumulator_ <<= pending_ & ~7U;
        pending_ &= 7;
    }

    /// Behind the last whole byte.
    std::uint8_t *next() const noexcept { return next_; }
    /// Goes on at another place; pending bits stay.
    void move(std::uint8_t *next) noexcept { next_ = next; }
    unsigned pending() const noexcept { return pending_; }

  private:
    std::uint64_t accumulator_ = 0; ///< pending bits, leftmost first, then zeros
    unsigned pending_ = 0;          ///< 0..7
    std::uint8_t *next_ = nullptr;
};

/// Packs bit fields, most significant bit first, into a buffer of its own that holds any frame.
///
///     bytes_                      cursor_.next()
///     v                           v
///     +---------------------------+----------------+------------------------------------+
///     | whole bytes               | pending, 0..7  | room; put() stores eight bytes here |
///     +---------------------------+----------------+------------------------------------+
///                                   bits
///
/// Packing here and copying the bytes once costs a few nanoseconds a frame; in return the bit-level
/// code needs no checks for the end of a block that the host chose.
class bit_buffer {
  public:
    bit_buffer() noexcept { cursor_.move(bytes_); }
    bit_buffer(const bit_buffer &) = delete;
    bit_buffer &operator=(const bit_buffer &) = delete;

    /// Appends the low n bits of value, n = 0..56; the bits above them are zero.
    void put(std::uint64_t value, unsigned n) noexcept { cursor_.put(value, n); }

    /// Appends n zero bits; nothing for n <= 0.
    void put_zeros(int n) noexcept {
        constexpr int most = bit_cursor::max_bits;
        for (; n > most; n -= most)
            put(0, most);
        if (n > 0) put(0, static_cast<unsigned>(n));
    }

    /// Appends zero bits up to the next byte boundary.
    void align() noexcept { put(0, (8 - cursor_.pending()) % 8); }

    bit_cursor cursor() const noexcept { return cursor_; }
    /// Takes over what has been written through a copy of the cursor.
    void resume(const bit_cursor &cursor) noexcept { cursor_ = cursor; }

    /// The whole bytes so far; up to seven bits may be pending behind them.
    const std::uint8_t *bytes() const noexcept { return bytes_; }
    std::size_t size() const noexcept { return static_cast<std::size_t>(cursor_.next() - bytes_); }

    /// Drops the bytes; pending bits stay.
    void clear_bytes() noexcept { cursor_.move(bytes_); }

  private:
    std::uint8_t bytes_[MPEG_A_MAX_FRAME_BYTES + 16];
    bit_cursor cursor_;
};

} // namespace vela
