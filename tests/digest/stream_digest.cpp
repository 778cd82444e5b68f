// Prints a digest of the stream of every level and many settings. `./dev identical` compares what
// builds by other compilers and at other optimisation levels print.
#include "host/encoding.hpp"

#include <cstdio>
#include <random>

namespace {

using namespace mp1a_test;

/// Noise under a stepping level, from integers alone: no mathematics library has a part in it.
std::vector<std::uint8_t> make_pcm(const stream &how) {
    std::minstd_rand random(static_cast<unsigned>(how.rate + how.width));
    std::vector<std::uint8_t> pcm;
    for (int i = 0; i < 40 * how.frame_samples() * how.channels(); ++i) {
        const int shift = i / 5000 % 12;
        const auto sample =
            static_cast<std::int16_t>(static_cast<int>(random() >> 15) - 32768) >> shift;
        const auto high = static_cast<std::int16_t>(sample + i % 4000 * 4 - 8000);
        const float scaled = static_cast<float>(high) / 32768.0F;
        std::uint8_t bytes[4] = {0, static_cast<std::uint8_t>(high),
                                 static_cast<std::uint8_t>(high >> 8), 0};
        if (how.width == 4) std::memcpy(bytes, &scaled, sizeof scaled);
        const int skip = how.width == 2 ? 1 : 0;
        pcm.insert(pcm.end(), bytes + skip, bytes + skip + how.width);
    }
    return pcm;
}

/// FNV-1a.
std::uint64_t digest_of(const std::vector<delivered_frame> &frames) {
    std::uint64_t hash = 0xCBF2'9CE4'8422'2325;
    for (const delivered_frame &frame : frames) {
        for (const std::uint8_t byte : frame.bytes)
            hash = (hash ^ byte) * 0x100'0000'01B3;
    }
    return hash;
}

} // namespace

int main() {
    for (const vela::level level : levels()) {
        for (int i = 0; i < 2 * 4 * 3 * 3 * 3; ++i) {
            const stream how{.layer = 1 + i % 2,
                             .mode = i / 2 % 4,
                             .bitrate = 5 + i / 8 % 3 * 4,
                             .crc = i % 3 % 2,
                             .rate = 32000
                                     + (i / 24 % 3 == 0   ? 0
                                        : i / 24 % 3 == 1 ? 12100
                                                          : 16000),
                             .width = 2 + i / 72 % 3};
            std::printf("level %d, layer %d, mode %d, bitrate %2d, %d Hz, %d bytes: %016llx\n",
                        static_cast<int>(level), how.layer, how.mode, how.bitrate, how.rate, how.width,
                        static_cast<unsigned long long>(digest_of(encode(how, make_pcm(how), level))));
        }
    }
    return 0;
}
