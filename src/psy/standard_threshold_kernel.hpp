// Masking thresholds and signal-to-mask ratios (ISO/IEC 11172-3, D.2.4).
#pragma once

#include "psy/history_kernel.hpp"
#include "psy/standard_constants.hpp"
#include "simd/lanes.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// Energy and weighted energy that a partition hears from all partitions.
template <class V>
struct spread_sums {
    V energy[padded_partitions], weighted[padded_partitions];
};

/// Convolves the partitions with the spreading function.
template <class V>
VELA_INLINE void spread(const standard_tables &tables, const spectrum_sums &sums,
                        spread_sums<V> &heard) {
    constexpr int L = lanes<V>;
    for (int group = 0; group < padded_partitions / spreading_group; ++group) {
        V energy[spreading_group], weighted[spreading_group];
        for (int i = 0; i < spreading_group; ++i)
            energy[i] = weighted[i] = splat<V>(0.0);
        const auto &gains = tables.spreading[group];
        for (int masker = tables.first_masker[group]; masker < tables.end_masker[group]; ++masker) {
            const V e = load<V>(sums.energy + masker * L), w = load<V>(sums.weighted + masker * L);
#pragma GCC unroll 4
            for (int i = 0; i < spreading_group; ++i) {
                const V gain = splat<V>(gains[masker][i]);
                energy[i] = energy[i] + e * gain;
                weighted[i] = weighted[i] + gain * w;
            }
        }
        for (int i = 0; i < spreading_group; ++i) {
            heard.energy[group * spreading_group + i] = energy[i];
            heard.weighted[group * spreading_group + i] = weighted[i];
        }
    }
}

/// From how far the partition is from predictable to how far in dB its masking threshold lies below its
/// energy.
/// @param c  unpredictability, limited to 0.05 .. 0.5
template <class V>
VELA_INLINE V masking_offset(const standard_tables &tables, int p, V c) {
    // Tonality: 1 for c = 0.05 and below, 0 for 0.5 and above, -log10 c - log10 2 in between.
    const V tonality = splat<V>(-0.434294482) * logarithm(c) - splat<V>(0.301029996);
    const V offset =
        splat<V>(tables.tone_masking[p]) * tonality + splat<V>(5.5) * (splat<V>(1.0) - tonality);
    return max_of(offset, splat<V>(tables.min_offset[p]));
}

/// Masking threshold per line of each partition: one step after the other for all partitions, because
/// whole chains would be too long to overlap.
template <class V>
void mask(const standard_tables &tables, const spectrum_sums &sums, double *out) noexcept {
    spread_sums<V> heard;
    spread(tables, sums, heard);
    const V zero = splat<V>(0.0);
    V c[padded_partitions], offset[padded_partitions];
    for (int p = 0; p < padded_partitions; ++p) {
        const V energy = heard.energy[p];
        const V unpredictability = select(energy == zero, zero, heard.weighted[p] / energy);
        c[p] = clamp(unpredictability, splat<V>(0.05), splat<V>(0.5));
    }
    for (int p = 0; p < padded_partitions; ++p)
        offset[p] = masking_offset(tables, p, c[p]);
    for (int p = 0; p < padded_partitions; ++p) {
        const V base = heard.energy[p] / splat<V>(tables.spread_norm[p]);
        store(out + p * lanes<V>, base * exponential(splat<V>(-ln10_by_10) * offset[p]));
    }
}

/// Thresholds of the lines: the mask of the line's partition or the threshold in quiet. In Layer I a
/// pass may rise above the one before by 15 dB (a factor of 32) at most, down to a limit of 25 dB
/// (0.00316) below its own threshold: this keeps pre-echo down.
template <class V, int channels>
VELA_INLINE V line_threshold(const standard_tables &tables, const double *mask, double *thresholds,
                             int k) {
    constexpr int L = lanes<V>;
    const V t = max_of(load<V>(mask + L * tables.of_line[k]), splat<V>(tables.quiet[k]));
    if (thresholds == nullptr) return t;
    const V limit = exchange_one<V, channels>(thresholds, k, splat<V>(32.0) * t);
    return max_of(splat<V>(0.00316) * t, min_of(limit, t));
}

/// A subband spans 17 lines: neighbours share one. Below subband 13 the least threshold of the lines
/// counts for all of them, above that the sum.
template <class V, int channels>
void ratios(const standard_tables &tables, const spectrum_sums &sums, const double *mask,
            double *thresholds, double *ratio) noexcept {
    constexpr int L = lanes<V>;
    constexpr int least_threshold_subbands = 13;
    // The limits matter for infinities in the input only: every ratio is finite.
    const V highest = splat<V>(1e300);
    V t = line_threshold<V, channels>(tables, mask, thresholds, 0);
    for (int sb = 0; sb < 32; ++sb) {
        V sum = t, least = min_of(t, splat<V>(no_threshold));
        for (int k = 16 * sb + 1; k <= 16 * sb + 16; ++k) {
            t = line_threshold<V, channels>(tables, mask, thresholds, k);
            sum = sum + t;
            least = min_of(t, least);
        }
        const V E = clamp(load<V>(sums.subband + sb * L), splat<V>(0.5), highest);
        const V T = min_of(sb < least_threshold_subbands ? splat<V>(17.0) * least : sum, highest);
        store(ratio + sb * L, E / T);
    }
    for (int sb = 0; sb < 32; ++sb)
        store(ratio + sb * L, splat<V>(4.342944819) * logarithm(load<V>(ratio + sb * L)));
}

} // namespace vela::VELA_LEVEL
