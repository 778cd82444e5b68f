#include "check/sound_sums.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace tools {
namespace {

constexpr double audible = 1e-6;  ///< -60 dBFS, as a square
constexpr double rounding = 1e-8; ///< -80 dBFS
constexpr std::size_t low_part = 16;

double square(double value) noexcept {
    return value * value;
}

} // namespace

void second_sums::operator+=(const second_sums &other) noexcept {
    samples += other.samples;
    signal += other.signal;
    noise += other.noise;
    low_signal += other.low_signal;
    low_noise += other.low_noise;
}

void over_count::add(std::span<const float> decoded) noexcept {
    float most = 0;
    for (const float each : decoded)
        most = std::max(most, std::abs(each));
    peak = std::max(peak, static_cast<double>(most));
    if (most > 1) // a tenth of a check's time goes into counting
        samples += static_cast<std::uint64_t>(
            std::ranges::count_if(decoded, [](float each) { return std::abs(each) > 1; }));
}

void over_count::operator+=(const over_count &other) noexcept {
    samples += other.samples;
    peak = std::max(peak, other.peak);
}

void add_difference(std::span<const float> sound, std::span<const float> decoded,
                    std::span<second_sums> sums) {
    const std::size_t channels = sums.size();
    for (std::size_t ch = 0; ch < channels; ++ch) {
        second_sums &sum = sums[ch];
        for (std::size_t i = ch; i < sound.size(); i += low_part * channels) {
            const std::size_t end = std::min(sound.size(), i + low_part * channels);
            double signal = 0, noise = 0;
            for (std::size_t k = i; k < end; k += channels) {
                const double x = sound[k], difference = x - decoded[k];
                signal += x;
                noise += difference;
                sum.signal += x * x;
                sum.noise += difference * difference;
            }
            sum.low_signal += square(signal) / low_part;
            sum.low_noise += square(noise) / low_part;
        }
        sum.samples += static_cast<double>(sound.size() / channels);
    }
}

std::optional<double> signal_to_noise(const second_sums &second) noexcept {
    if (second.signal < audible * second.samples || second.samples == 0) return std::nullopt;
    return 10 * std::log10(second.signal / std::max(second.noise, 1e-12 * second.signal));
}

std::optional<std::size_t> first_wrong_second(std::span<const second_sums> seconds,
                                              std::size_t channels, bool intensity) {
    const double most = intensity ? 2.5 : 1.12;
    const std::size_t count = seconds.size() / channels;
    for (std::size_t second = 0; second < count; ++second)
        for (std::size_t ch = 0; ch < channels; ++ch) {
            const auto at = [&](std::size_t k) -> const second_sums & {
                return seconds[k * channels + ch];
            };
            const second_sums &here = at(second);
            // What comes before an attack, or after it, has its noise too.
            const double beside = (second > 0 ? at(second - 1).signal : 0)
                                  + (second + 1 < count ? at(second + 1).signal : 0);
            const double allowed = most * here.signal + 0.1 * beside + rounding * here.samples;
            const bool has_low_sound = here.low_signal > 0.03 * here.signal
                                       && here.low_signal > audible * here.samples
                                       && here.low_signal > 0.1 * beside;
            if (here.noise > allowed || (has_low_sound && here.low_noise > 0.8 * here.low_signal))
                return second;
        }
    return std::nullopt;
}

std::optional<int> find_shift(std::span<const float> sound, std::span<const float> decoded) {
    double energy = 0, decoded_energy = 0;
    for (std::size_t i = 0; i < decoded.size(); ++i) {
        energy += square(sound[i]);
        decoded_energy += square(decoded[i]);
    }
    const auto likeness_at = [&](std::size_t offset) {
        std::array<float, 16> sums{}; // that many, so that they can be added to at once
        for (std::size_t i = 0; i + sums.size() <= decoded.size(); i += sums.size())
            for (std::size_t k = 0; k < sums.size(); ++k)
                sums[k] += sound[offset + i + k] * decoded[i + k];
        const double sum = std::accumulate(sums.begin(), sums.end(), 0.0);
        return sum / std::sqrt(std::max(energy * decoded_energy, 1e-20));
    };
    if (decoded_energy < audible * static_cast<double>(decoded.size())) return std::nullopt;
    double best = -1, here = -1;
    int shift = 0;
    for (int offset = 0; offset <= 2 * longest_shift; ++offset) {
        const double likeness = likeness_at(static_cast<std::size_t>(offset));
        if (offset == longest_shift) here = likeness;
        if (likeness > best) {
            best = likeness;
            shift = longest_shift - offset;
        }
        const auto at = static_cast<std::size_t>(offset);
        energy += square(sound[at + decoded.size()]) - square(sound[at]);
    }
    // Sound that repeats itself is as much like its neighbour, but for what floats round.
    const auto unlike = [](double likeness) { return 1e-4 + 1 - square(std::max(likeness, 0.0)); };
    const bool is_other = best > 0.5 && unlike(best) < 0.8 * unlike(here);
    return is_other && shift != 0 ? std::optional(shift) : std::nullopt;
}

} // namespace tools
