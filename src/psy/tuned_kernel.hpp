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

/// Excitations before they are scaled: amplitudes that add up over the partitions below and above.
template <class S>
VELA_INLINE void spread_amplitudes(const tuned_tables &tables, const double *amplitude, double *out) {
    constexpr int L = lanes<S>;
    S upward = splat<S>(0.0), downward = splat<S>(0.0);
    for (int p = 0; p < padded_partitions; ++p) {
        upward = load<S>(amplitude + p * L) + upward * splat<S>(tables.upward[p]);
        store(out + p * L, upward);
    }
    for (int p = padded_partitions - 1; p > 0; --p) {
        downward = (load<S>(amplitude + p * L) + downward) * splat<S>(tables.downward[p - 1]);
        double *const below = out + (p - 1) * L;
        store(below, load<S>(below) + downward);
    }
}

/// Weights: 1 / T of the lines and a little of that before an attack, raised to a power, added up over
/// what each subband is heard by. Where the passes, `width` of them, leave lanes free, neighbouring partitions
/// fill those.
template <class V, int width, int channels>
void weigh_noise(const tuned_tables &tables, const double *energy, double *history,
                 double *weight) noexcept {
    using S = lane_type<width>;
    constexpr int size = padded_partitions * width, neighbours = lanes<V> / width;
    double amplitude[size], value[size];
    for (int i = 0; i < size; i += lanes<V>)
        store(amplitude + i, square_root(load<V>(energy + i)));
    spread_amplitudes<S>(tables, amplitude, value);
    // The limits matter for infinities in the input only: every weight is finite.
    const V fading = splat<V>(tables.fading), highest = splat<V>(1e300);
    for (int p = 0; p < padded_partitions; p += neighbours) {
        const V share = load_each<V, width>(tables.mask_share.begin() + p);
        const V quiet = load_each<V, width>(tables.quiet.begin() + p);
        const auto threshold_of = [=](V excitation) {
            return min_of(excitation * share + quiet, highest);
        };
        double *const here = value + p * width;
        const V scaled = load<V>(here) * load_each<V, width>(tables.spread_scale.begin() + p);
        const V excitation = scaled * scaled;
        const earlier<V> past = exchange<V, channels, width>(history, p, excitation);
        const V masking = max_of(fading * max_of(fading * past.before2, past.before1), excitation);
        const V before = threshold_of(min_of(past.before2, past.before1));
        store(here,
              splat<V>(1.0) / threshold_of(masking) + splat<V>(tuned::noise_before_attacks) / before);
    }
    for (int i = 0; i < size; i += lanes<V>)
        store(value + i, exponential(splat<V>(tuned::weight_exponent) * logarithm(load<V>(value + i))));
    const double *share = tables.heard_share.begin();
    for (int sb = 0; sb < 32; ++sb) {
        S sum = splat<S>(0.0);
        for (int p = tables.first_heard[sb]; p < tables.end_heard[sb]; ++p)
            sum = sum + splat<S>(*share++) * load<S>(value + p * width);
        store(weight + sb * width, sum);
    }
}

} // namespace vela::VELA_LEVEL
