#include "signal.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace vela::bench {

std::vector<std::int16_t> make_music(double seconds, int sample_rate, int channels) {
    std::minstd_rand random(1);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    const auto count = static_cast<std::size_t>(seconds * sample_rate);
    std::vector<std::int16_t> samples;
    samples.reserve(count * static_cast<std::size_t>(channels));
    for (std::size_t i = 0; i < count; ++i) {
        const double t = static_cast<double>(i) / sample_rate;
        const double since_beat = std::fmod(t, 0.5), decay = std::exp(-6.0 * since_beat);
        const double pitch = 110.0 * std::exp2(std::fmod(std::floor(t * 2) * 7, 12) / 12);
        for (int c = 0; c < channels; ++c) {
            double value = 0.05 * decay * uniform(random) + 0.005 * uniform(random);
            for (int harmonic = 1; harmonic < 20; ++harmonic) {
                const double phase = 2 * std::numbers::pi * pitch * harmonic * t + c * 0.3 * harmonic;
                value += 0.25 / harmonic * (0.3 + decay) * std::sin(phase);
            }
            samples.push_back(
                static_cast<std::int16_t>(std::clamp(value * 24000.0, -32768.0, 32767.0)));
        }
    }
    return samples;
}

std::vector<level> supported_levels() {
    std::vector<level> levels;
    for (const level which : all_levels) {
        if (is_supported(which)) levels.push_back(which);
    }
    return levels;
}

} // namespace vela::bench
