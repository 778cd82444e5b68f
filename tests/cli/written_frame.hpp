// Frames written bit by bit, by the syntax of ISO/IEC 11172-3, 2.4.1.
#pragma once

#include "parser/standard_tables.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace velaenc_test {

using bytes = std::vector<std::uint8_t>;

/// Bits as a text of zeros and ones.
inline void put_bits(std::string &bits, int value, int n) {
    for (int i = n; i-- > 0;)
        bits += static_cast<char>('0' + (value >> i & 1));
}

inline bytes packed(const std::string &bits) {
    bytes out(bits.size() / 8);
    for (std::size_t i = 0; i < 8 * out.size(); ++i)
        out[i / 8] = static_cast<std::uint8_t>(out[i / 8] << 1 | (bits[i] - '0'));
    return out;
}

/// A header with nothing allocated behind it.
struct written_frame {
    int version = 1, layer = 2, bitrate_index = 1, rate_index = 0, padding = 0, mode = 0;

    int rate() const {
        return std::array{44100, 48000, 32000}[static_cast<unsigned>(rate_index)] / version;
    }
    int kbps() const { return tools::bitrate_of(layer, bitrate_index, version); }
    /// 2.4.3.1: slots of four bytes or one.
    int size() const {
        return layer == 1 ? 4 * (12000 * kbps() / rate() + padding)
                          : 144000 * kbps() / rate() + padding;
    }
    bytes write() const {
        std::string bits;
        put_bits(bits, 0xFFF1 | (2 - version) << 3 | (4 - layer) << 1, 16);
        put_bits(bits, bitrate_index << 12 | rate_index << 10 | padding << 9 | mode << 6, 16);
        bits.resize(8 * static_cast<std::size_t>(size()), '0');
        return packed(bits);
    }
};

} // namespace velaenc_test
