// The tuned model's steps between the transform and the weights of noise.
#pragma once

#include "psy/history_kernel.hpp"
#include "psy/transform_kernel.hpp"
#include "psy/tuned_parameters.hpp"
#include "psy/tuned_tables.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// Where a line's pair of Hartley values stands, in doubles.
struct pair_place {
    std::uint16_t value, partner;
};
template <int lanes>
inline constexpr table<pair_place, transform_length / 2 + 1> pair_places = [] {
    table<pair_place, transform_length / 2 + 1> places{};
    for (int k = 0; k <= transform_length / 2; ++k) {
        const auto place = [](int i) { return static_cast<std::uint16_t>(lanes * place_of[i]); };
        places[k] = {place(k), place((transform_length - k) % transform_length)};
    }
    return places;
}();

/// Energies of the partitions. A pair of Hartley values a = H[k], b = H[1024 - k] has the energy
/// (a^2 + b^2) / 2; lines 0 and 512, which have no partner, have a^2: each is its own partner.
template <class V>
void partition_energies(const partition_lines &partitions, const double *x, double *energy) noexcept {
    const V half = splat<V>(0.5);
    for (int p = 0; p < padded_partitions; ++p) {
        V sum = splat<V>(0.0);
        const pair_place *const end = pair_places<lanes<V>>.begin() + partitions.first_line[p + 1];
        const pair_place *k = pair_places<lanes<V>>.begin() + partitions.first_line[p];
        for (; k < end; ++k) {
            const V a = load<V>(x + k->value), b = load<V>(x + k->partner);
            sum = sum + (a * a + b * b);
        }
        store(energy + p * lanes<V>, half * sum);
    }
}

/// Excitations: amplitudes that add up over the partitions below and above, squared.
template <class V>
VELA_INLINE void excite(const tuned_tables &tables, const double *energy, V (&out)[padded_partitions]) {
    V amplitude[padded_partitions];
    for (int p = 0; p < padded_partitions; ++p)
        amplitude[p] = square_root(load<V>(energy + p * lanes<V>));
    V upward = splat<V>(0.0), downward = splat<V>(0.0);
    for (int p = 0; p < padded_partitions; ++p) {
        upward = amplitude[p] + upward * splat<V>(tables.upward[p]);
        out[p] = upward;
    }
    for (int p = padded_partitions - 1; p > 0; --p) {
        downward = (amplitude[p] + downward) * splat<V>(tables.downward[p - 1]);
        out[p - 1] = out[p - 1] + downward;
    }
    for (int p = 0; p < padded_partitions; ++p) {
        const V scaled = out[p] * splat<V>(tables.spread_scale[p]);
        out[p] = scaled * scaled;
    }
}

/// Weights: 1 / T of the lines and a little of that before an attack, raised to a power, added up over
/// what each subband is heard by.
template <class V, int channels>
void weigh_noise(const tuned_tables &tables, const double *energy, double *history,
                 double *weight) noexcept {
    constexpr int L = lanes<V>;
    V value[padded_partitions];
    excite(tables, energy, value);
    // The limits matter for infinities in the input only: every weight is finite.
    const V fading = splat<V>(tables.fading), highest = splat<V>(1e300);
    const auto threshold_of = [&](V excitation, int p) {
        return min_of(excitation * splat<V>(tables.mask_share[p]) + splat<V>(tables.quiet[p]), highest);
    };
    for (int p = 0; p < padded_partitions; ++p) {
        const earlier<V> past = exchange<V, channels>(history, p, value[p]);
        const V masking = max_of(fading * max_of(fading * past.before2, past.before1), value[p]);
        const V threshold = threshold_of(masking, p);
        const V before = threshold_of(min_of(past.before2, past.before1), p);
        value[p] = splat<V>(1.0) / threshold + splat<V>(tuned::noise_before_attacks) / before;
    }
    for (int p = 0; p < padded_partitions; ++p)
        value[p] = exponential(splat<V>(tuned::weight_exponent) * logarithm(value[p]));
    const double *share = tables.heard_share.begin();
    for (int sb = 0; sb < 32; ++sb) {
        V sum = splat<V>(0.0);
        for (int p = tables.first_heard[sb]; p < tables.end_heard[sb]; ++p)
            sum = sum + splat<V>(*share++) * value[p];
        store(weight + sb * L, sum);
    }
}

} // namespace vela::VELA_LEVEL
