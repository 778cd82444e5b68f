// The CRC-16 of protected frames.
#pragma once

#include "vela_enc_mp1a/bufstream.h"

#include <cstdint>

namespace vela {

/// CRC-16 of ISO/IEC 11172-3, 2.4.3.1: generator x^16 + x^15 + x^2 + 1, all ones at the start.
class crc16 {
  public:
    /// Runs the low n bits of `field` through the register, most significant first.
    constexpr void put(std::uint32_t field, unsigned n) noexcept {
        for (; n > 0; --n) {
            const std::uint32_t feedback = ((field >> (n - 1)) ^ (register_ >> 15)) & 1;
            register_ = (register_ << 1 ^ (feedback != 0 ? 0x8005 : 0)) & 0xFFFF;
        }
    }

    constexpr std::uint32_t value() const noexcept { return register_; }

  private:
    std::uint32_t register_ = 0xFFFF;
};

/// The register after the last sixteen bits of the header, the ones that are protected.
constexpr crc16 header_crc(std::uint32_t header_word) noexcept {
    crc16 crc;
    crc.put(header_word, 16);
    return crc;
}

} // namespace vela
