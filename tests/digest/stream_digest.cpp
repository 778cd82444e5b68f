// Prints a digest of the stream of each of many settings, or of every STEPth: stream_digest [STEP]. Every level must
// give the same ones, or it ends with 1; and so must other processors, compilers and optimisation levels.
#include "host/encoding.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

using namespace mp1a_test;

/// Noise under a stepping level, from integers alone: no mathematics library has a part in it. Among
/// floats are some that no sound has.
static std::vector<std::uint8_t> make_pcm(const stream &how, int frames) {
    constexpr float bad[] = {NAN, 1e-40F, 1e30F, -3e38F, -NAN, INFINITY, -INFINITY};
    std::minstd_rand random(static_cast<unsigned>(how.rate + how.width));
    std::vector<std::uint8_t> pcm;
    for (int i = 0; i < frames * how.frame_samples() * how.channels(); ++i) {
        const auto noise = static_cast<std::int16_t>(static_cast<int>(random() >> 15) - 32768);
        const auto high = static_cast<std::int16_t>((noise >> i / 5000 % 12) + i % 4000 * 4 - 8000);
        const float scaled = i % 997 == 0 ? bad[i / 997 % 7] : static_cast<float>(high) / 32768.0F;
        const std::int32_t integer = high * 256;
        const int skip = how.width == 2 ? 1 : 0;
        char bytes[4];
        std::memcpy(bytes, how.width == 4 ? static_cast<const void *>(&scaled) : &integer, 4);
        pcm.insert(pcm.end(), bytes + skip, bytes + skip + how.width);
    }
    return pcm;
}

int main(int count, char **arguments) {
    constexpr int rates[] = {32000, 44100, 48000};
    const int step = count > 1 ? std::atoi(arguments[1]) : 1;
    int result = 0;
    for (int k = 0; k < 2 * 2 * 4 * 3 * 3 * 3; k += step) {
        const int i = k / 2;
        stream how{1 + i % 2, i / 2 % 4,         5 + i / 8 % 3 * 4,
                   i % 3 % 2, rates[i / 24 % 3], 2 + i / 72 % 3};
        how.model = k % 2 * MPEG_A_MODEL_TUNED;
        const auto pcm = make_pcm(how, step > 1 ? 6 : 40);
        const auto frames = joined(encode(how, pcm));
        for (const vela::level level : levels()) {
            if (joined(encode(how, pcm, level)) == frames) continue;
            std::printf("differs at level %s: ", vela::name_of(level));
            result = 1;
        }
        std::uint64_t hash = 0xCBF2'9CE4'8422'2325; // FNV-1a
        for (const std::uint8_t byte : frames)
            hash = (hash ^ byte) * 0x100'0000'01B3;
        std::printf("layer %d, mode %d, bitrate %2d, %d Hz, %d bytes%s: %016llx\n", how.layer, how.mode,
                    how.bitrate, how.rate, how.width, k % 2 == 1 ? ", tuned" : "",
                    static_cast<unsigned long long>(hash));
    }
    return result;
}
