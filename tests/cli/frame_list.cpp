#include "frame_list.hpp"

#include <array>
#include <cstdint>

namespace velaenc_test {
namespace {

constexpr std::array<int, 3> rates{44100, 48000, 32000};
constexpr std::array<int, 15> layer2_kbit{0,   32,  48,  56,  64,  80,  96, 112,
                                          128, 160, 192, 224, 256, 320, 384};

bool read_header(std::uint32_t word, frame &to) {
    const auto field = [word](int shift, unsigned mask) {
        return static_cast<int>(word >> shift & mask);
    };
    const int layer_code = field(17, 3), index = field(12, 15), rate = field(10, 3);
    // Sync word and MPEG-1; layer codes 3 and 2 are Layer I and II.
    if (field(19, 0x1FFF) != 0x1FFF || layer_code < 2 || index < 1 || index > 14 || rate == 3)
        return false;
    to.layer = 4 - layer_code;
    to.crc = 1 - field(16, 1);
    to.kbit = to.layer == 1 ? 32 * index : layer2_kbit[static_cast<std::size_t>(index)];
    to.rate = rates[static_cast<std::size_t>(rate)];
    to.private_bit = field(8, 1);
    to.mode = field(6, 3);
    to.copyright = field(3, 1);
    to.original = field(2, 1);
    to.emphasis = field(0, 3);
    const int slots = (to.layer == 1 ? 12000 : 144000) * to.kbit / to.rate + field(9, 1);
    to.bytes = static_cast<std::size_t>(to.layer == 1 ? 4 * slots : slots);
    return true;
}

} // namespace

std::vector<frame> frames_of(const std::string &stream) {
    std::vector<frame> frames;
    std::size_t offset = 0;
    while (offset + 4 <= stream.size()) {
        std::uint32_t word = 0;
        for (std::size_t i = 0; i < 4; ++i)
            word = word << 8 | static_cast<std::uint8_t>(stream[offset + i]);
        frame next;
        next.offset = offset;
        if (!read_header(word, next)) return {};
        frames.push_back(next);
        offset += next.bytes;
    }
    return offset == stream.size() ? frames : std::vector<frame>{};
}

} // namespace velaenc_test
