#include "loudness/weighting.hpp"

#include <cmath>
#include <numbers>

namespace tools {
namespace {

constexpr int table_rate = 48000;
constexpr biquad head_shelf{1.53512485958697, -2.69169618940638, 1.19839281085285, -1.69065929318241,
                            0.73248077421585};
constexpr biquad rlb_high_pass{1, -2, 1, -1.99004745483398, 0.99007225036621};

struct polynomial {
    double p0, p1, p2;
};

/// Powers of 1/z to powers of (1 - 1/z) / (1 + 1/z), or back, but for a factor.
constexpr polynomial exchanged(const polynomial &p) {
    return {p.p0 + p.p1 + p.p2, 2 * (p.p0 - p.p2), p.p0 - p.p1 + p.p2};
}

/// The analogue filter behind it, by the bilinear transform, and that one at another rate. The corner stays
/// where it is: it lies at sqrt(q0 / q2) of the denominator's powers, which is a tangent of its frequency.
biquad at_rate(const biquad &filter, int rate) {
    polynomial above = exchanged({filter.b0, filter.b1, filter.b2}),
               below = exchanged({1, filter.a1, filter.a2});
    const double corner = std::sqrt(below.p0 / below.p2);
    const double stretch = corner / std::tan(std::atan(corner) * table_rate / rate);
    for (polynomial *each : {&above, &below}) {
        each->p1 *= stretch;
        each->p2 *= stretch * stretch;
        *each = exchanged(*each);
    }
    return {above.p0 / below.p0, above.p1 / below.p0, above.p2 / below.p0, below.p1 / below.p0,
            below.p2 / below.p0};
}

} // namespace

weighting_filters weighting_at(int rate) {
    return {at_rate(head_shelf, rate), at_rate(rlb_high_pass, rate)};
}

void weighting::add(std::span<const float> samples) noexcept {
    channels_ == 1 ? add_channels<1>(samples) : add_channels<2>(samples);
}

// Each sample has to wait for one product and one difference of the sample before, twice; the rest fits in between.
template <int channels>
void weighting::add_channels(std::span<const float> samples) noexcept {
    const auto [shelf, high_pass] = filters_;
    pair s1 = shelf_[0], s2 = shelf_[1], h1 = high_pass_[0], h2 = high_pass_[1], sum = sum_;
    for (std::size_t i = 0; i + channels <= samples.size(); i += channels) {
        const pair x{samples[i], channels == 2 ? samples[i + channels - 1] : 0};
        const pair s0 = x - shelf.a2 * s2 - shelf.a1 * s1;
        const pair y = shelf.b0 * s0 + (shelf.b1 * s1 + shelf.b2 * s2);
        const pair h0 = y - high_pass.a2 * h2 - high_pass.a1 * h1;
        const pair z = high_pass.b0 * h0 + (high_pass.b1 * h1 + high_pass.b2 * h2);
        sum += z * z;
        s2 = s1, s1 = s0;
        h2 = h1, h1 = h0;
    }
    shelf_[0] = s1, shelf_[1] = s2, high_pass_[0] = h1, high_pass_[1] = h2, sum_ = sum;
}

double weighting::take_energy() noexcept {
    constexpr double most = 1e100, least = 1e-200; // below, arithmetic becomes slow
    double energy = sum_[0] + sum_[1];
    sum_ = pair{};
    const bool is_sound = energy < most;
    for (pair *each : {&shelf_[0], &shelf_[1], &high_pass_[0], &high_pass_[1]})
        for (int i = 0; i < 2; ++i)
            if (!is_sound || std::abs((*each)[i]) < least) (*each)[i] = 0;
    return is_sound ? energy : 0;
}

} // namespace tools
