#include "loudness/true_peak.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>

namespace tools {
namespace {

typedef float lanes __attribute__((vector_size(4 * sizeof(float))));
typedef std::int32_t masks __attribute__((vector_size(4 * sizeof(float))));

constexpr std::size_t lane_count = 4, taps = true_peak::taps;

/// Weights of the neighbours for the values at 1/4, 1/2 and 3/4 between two samples: a sinc under a Hann window,
/// which ends at the seventh sample on either side.
struct interpolator {
    std::array<std::array<float, 3>, taps> weights;

    interpolator() {
        constexpr double half = taps / 2;
        for (std::size_t tap = 0; tap < taps; ++tap)
            for (std::size_t phase = 0; phase < 3; ++phase) {
                const double distance =
                    std::numbers::pi
                    * (static_cast<double>(phase + 1) / 4 + half - 1 - static_cast<double>(tap));
                weights[tap][phase] = static_cast<float>(std::sin(distance) / distance
                                                         * (1 + std::cos(distance / half)) / 2);
            }
    }
};

/// No value between samples is larger than this times the largest of its neighbours: the weights' magnitudes add
/// up to 1.87. So most of them need not be computed.
constexpr float most_overshoot = 2;

lanes load(const float *from) noexcept {
    lanes value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

/// `most` where the other is no number.
lanes larger_magnitude(lanes value, lanes most) noexcept {
    const auto magnitude = std::bit_cast<lanes>(std::bit_cast<masks>(value) & 0x7FFFFFFF);
    return magnitude > most ? magnitude : most;
}

float largest_lane(lanes value) noexcept {
    return std::max({value[0], value[1], value[2], value[3]});
}

float largest_of(std::span<const float> samples) noexcept {
    lanes most{};
    for (std::size_t i = 0; i < samples.size(); i += lane_count)
        most = larger_magnitude(load(&samples[i]), most);
    return largest_lane(most);
}

/// The largest magnitude between so many samples of each channel and their neighbours.
float largest_between(const float *values, std::size_t count, std::size_t channels) noexcept {
    static const interpolator coefficients;
    lanes most{};
    for (std::size_t at = 0; at < count; at += 2 * lane_count) {
        lanes sums[3][2]{};
        for (std::size_t tap = 0; tap < taps; ++tap) {
            const float *const from = values + at + tap * channels;
            const lanes near = load(from), next = load(from + lane_count);
            for (std::size_t phase = 0; phase < 3; ++phase) {
                sums[phase][0] += coefficients.weights[tap][phase] * near;
                sums[phase][1] += coefficients.weights[tap][phase] * next;
            }
        }
        for (const auto &phase : sums)
            most = larger_magnitude(phase[1], larger_magnitude(phase[0], most));
    }
    return largest_lane(most);
}

} // namespace

true_peak::true_peak(int channels)
    : channels_(static_cast<std::size_t>(channels)), values_(capacity * channels_),
      filled_(kept * channels_) {
}

void true_peak::lead_in(std::span<const float> samples) {
    const auto last = samples.last(std::min(samples.size(), filled_));
    const auto begin = values_.begin(), end = begin + static_cast<std::ptrdiff_t>(filled_),
               moved = begin + static_cast<std::ptrdiff_t>(last.size());
    std::ranges::copy(last, std::copy(moved, end, begin));
}

void true_peak::add(std::span<const float> samples) {
    while (!samples.empty()) {
        const auto part = samples.first(std::min(samples.size(), values_.size() - filled_));
        std::ranges::copy(part, values_.begin() + static_cast<std::ptrdiff_t>(filled_));
        filled_ += part.size();
        samples = samples.subspan(part.size());
        if (filled_ == values_.size()) look();
    }
}

float true_peak::finish(bool is_end) {
    if (is_end) add(std::vector<float>(taps * channels_));
    look();
    return peak_;
}

void true_peak::look() {
    const std::size_t step = group * channels_, reach = (taps - 1) * channels_, end = filled_ - reach;
    for (std::size_t next = kept * channels_ - reach; next < end; next += step) {
        const std::size_t at = std::min(next, end - step);
        const float largest = largest_of(std::span(values_).subspan(
            at - channels_, channels_ + step + reach)); // a multiple of lanes
        if (largest * most_overshoot <= peak_) continue;
        peak_ = std::max({peak_, largest, largest_between(&values_[at], step, channels_)});
    }
    const auto all = values_.begin();
    std::copy(all + static_cast<std::ptrdiff_t>(filled_ - kept * channels_),
              all + static_cast<std::ptrdiff_t>(filled_), all);
    filled_ = kept * channels_;
}

} // namespace tools
