// Masking thresholds and signal-to-mask ratios (ISO/IEC 11172-3, D.2.4). Lanes are partitions or
// subbands.
#pragma once

#include "psy/kernels.hpp"
#include "simd/lanes.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// Energies of the partitions, plain and weighted with the unpredictability.
struct partition_sums {
    double energy[padded_partitions], weighted[padded_partitions];
};

inline void sum_partitions(const partition_tables &tables, const spectrum &pass,
                           partition_sums &sums) noexcept {
    for (unsigned p = 0; p < padded_partitions; ++p) {
        double energy = 0, weighted = 0;
        for (int line = tables.first_line[p]; line < tables.first_line[p + 1]; ++line) {
            energy += pass.energy[line];
            weighted += pass.energy[line] * pass.unpredictability[line];
        }
        sums.energy[p] = energy;
        sums.weighted[p] = weighted;
    }
}

/// Masking threshold per line from spread energy and spread weighted energy.
template <class V>
VELA_INLINE V partition_mask(const partition_tables &tables, unsigned first, V energy, V weighted) {
    const V zero = splat<V>(0.0), one = splat<V>(1.0);
    const V base = energy / load<V>(tables.spread_norm.data() + first);
    const V unpredictability = select(energy == zero, zero, weighted / energy);
    // Tonality: 1 for c <= 0.05, 0 for c >= 0.5: -log10 c - log10 2.
    const V c = clamp(unpredictability, splat<V>(0.05), splat<V>(0.5));
    const V tonality = splat<V>(-0.434294482) * logarithm(c) - splat<V>(0.301029996);
    const V offset =
        load<V>(tables.tone_masking.data() + first) * tonality + splat<V>(5.5) * (one - tonality);
    const V limited = max_of(offset, load<V>(tables.min_offset.data() + first));
    return base * exponential(splat<V>(-0.2302585093) * limited);
}

/// Convolves the partitions with the spreading function and derives each partition's threshold.
template <class V>
void mask(const partition_tables &tables, const spectrum &pass,
          double (&out)[padded_partitions]) noexcept {
    partition_sums sums;
    sum_partitions(tables, pass, sums);
    constexpr int G = spreading_group / lanes<V>;
    for (unsigned group = 0; group < padded_partitions / spreading_group; ++group) {
        const unsigned first = group * spreading_group;
        V energy[G], weighted[G];
        for (int g = 0; g < G; ++g)
            energy[g] = weighted[g] = splat<V>(0.0);
        for (int masker = tables.first_masker[group]; masker < tables.end_masker[group]; ++masker) {
            const double *const gains = tables.spreading[static_cast<unsigned>(masker)].data() + first;
            const V e = splat<V>(sums.energy[masker]), w = splat<V>(sums.weighted[masker]);
#pragma GCC unroll 8
            for (int g = 0; g < G; ++g) {
                const V gain = load<V>(gains + g * lanes<V>);
                energy[g] = energy[g] + e * gain;
                weighted[g] = weighted[g] + gain * w;
            }
        }
        for (int g = 0; g < G; ++g) {
            const auto p = first + static_cast<unsigned>(g * lanes<V>);
            store(out + p, partition_mask(tables, p, energy[g], weighted[g]));
        }
    }
}

/// The values of as many subbands as V has lanes at one of their lines.
template <class V>
VELA_INLINE V load_subbands(const double *first) {
    V values;
    for (int i = 0; i < lanes<V>; ++i)
        set_lane(values, i, first[16 * i]);
    return values;
}

/// A subband spans 17 lines: neighbours share one. Below subband 13 the least threshold of the lines
/// counts for all of them, above that the sum.
template <class V>
void ratios(const lines &energy, const lines &threshold, smr_row &out) noexcept {
    constexpr int least_threshold_subbands = 13;
    constexpr double loudest = 60802371420160.0;
    for (int sb = 0; sb < 32; sb += lanes<V>) {
        V E = splat<V>(0.0), sum = splat<V>(0.0), least = splat<V>(loudest);
        for (int i = 0; i < 17; ++i) {
            const V t = load_subbands<V>(threshold + 16 * sb + i);
            E = E + load_subbands<V>(energy + 16 * sb + i);
            sum = sum + t;
            least = min_of(t, least);
        }
        V T = splat<V>(17.0) * least;
        for (int i = 0; i < lanes<V>; ++i) {
            if (sb + i >= least_threshold_subbands) set_lane(T, i, lane(sum, i));
        }
        // The upper limits matter for infinities in the input only: every ratio is finite.
        const V highest = splat<V>(1e300);
        E = clamp(E, splat<V>(0.5), highest);
        T = min_of(T, highest);
        store(out + sb, splat<V>(4.342944819) * logarithm(E / T));
    }
}

} // namespace vela::VELA_LEVEL
