// Input for the tests: the same samples for the same seed, and their PCM bytes.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace mp1a_test {

enum class waveform { silence, noise, tone, square, clicks, onset, broken };

inline constexpr waveform all_waveforms[] = {waveform::silence, waveform::noise,  waveform::tone,
                                             waveform::square,  waveform::clicks, waveform::onset,
                                             waveform::broken};

/// Samples with full scale 1.0. `onset` is near silence, then noise; `broken` has NaN, infinities,
/// subnormal values and some far beyond full scale among noise.
inline std::vector<float> make_signal(waveform kind, int samples, unsigned seed = 1) {
    constexpr float bad[] = {NAN, 1e-40F, 1e30F, -3e38F, 2.0F, INFINITY, -INFINITY};
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1, 1);
    std::vector<float> out;
    for (int i = 0; i < samples; ++i) {
        const float noise = uniform(random);
        const float values[] = {0,
                                noise,
                                0.9F * static_cast<float>(std::sin(0.05 * (1 + seed % 7) * i)),
                                i / 50 % 2 == 0 ? 1.0F : -1.0F,
                                i % 700 == static_cast<int>(seed) % 700 ? 1.0F : 0.0F,
                                i % 1500 < 900 ? 1e-4F * noise : noise,
                                i % 97 == 0 ? bad[i / 97 % 7] : 0.3F * noise};
        out.push_back(values[static_cast<int>(kind)]);
    }
    return out;
}

/// Samples as 16-bit PCM, 24-bit PCM or floats, by bytes per sample.
inline std::vector<std::uint8_t> pcm_bytes(const std::vector<float> &samples, int width) {
    std::vector<std::uint8_t> out;
    for (const float sample : samples) {
        std::uint32_t bits;
        std::memcpy(&bits, &sample, sizeof bits);
        if (width != 4) {
            const double scale = width == 2 ? 32767 : 8388607;
            const double value = std::fmax(-scale - 1, std::fmin(scale, scale * sample)); // NaN as well
            bits = static_cast<std::uint32_t>(static_cast<std::int32_t>(value));
        }
        for (int i = 0; i < width; ++i)
            out.push_back(static_cast<std::uint8_t>(bits >> 8 * i));
    }
    return out;
}

} // namespace mp1a_test
