// Bits of a frame, the most significant first.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <span>

namespace tools {

class bit_reader {
  public:
    explicit bit_reader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    int at() const { return at_; }
    int size() const { return static_cast<int>(8 * bytes_.size()); }
    int left() const { return size() - at_; }
    void skip(int n) { at_ += n; }

    /// `n` bits from 1 to 56 from bit `position`; beyond the end there are zeros.
    std::uint64_t peek(int position, int n) const {
        return word(static_cast<unsigned>(position) / 8) << position % 8 >> (64 - n);
    }

    std::uint64_t read(int n) {
        const std::uint64_t value = peek(at_, n);
        at_ += n;
        return value;
    }

  private:
    std::uint64_t word(std::size_t byte) const {
        std::uint64_t value = 0;
        if (byte + 8 <= bytes_.size()) {
            std::memcpy(&value, &bytes_[byte], 8);
            return __builtin_bswap64(value);
        }
        for (std::size_t i = byte; i < byte + 8; ++i)
            value = value << 8 | (i < bytes_.size() ? bytes_[i] : 0);
        return value;
    }

    std::span<const std::uint8_t> bytes_;
    int at_ = 0;
};

} // namespace tools
