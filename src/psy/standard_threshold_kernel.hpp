// Masking thresholds and signal-to-mask ratios (ISO/IEC 11172-3, D.2.4).
#pragma once

#include "psy/history_kernel.hpp"
#include "psy/standard_constants.hpp"
#include "simd/lanes.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

// A partition has a lane for every pass, `width` of them. Where that leaves lanes free, neighbouring
// partitions fill those.

/// Energy and weighted energy that partitions hear from all partitions.
template <class V, int width>
struct spread_sums {
    static constexpr int neighbours = lanes<V> / width, size = padded_partitions / neighbours;

    V energy[size], weighted[size];
};

/// Convolves the partitions with the spreading function.
template <class V, int width>
VELA_INLINE void spread(const standard_tables &tables, const spectrum_sums &sums,
                        spread_sums<V, width> &heard) {
    constexpr int neighbours = spread_sums<V, width>::neighbours, size = spreading_group / neighbours;
    for (int group = 0; group < padded_partitions / spreading_group; ++group) {
        V energy[size], weighted[size];
        for (int i = 0; i < size; ++i)
            energy[i] = weighted[i] = splat<V>(0.0);
        const auto &gains = tables.spreading[group];
        for (int masker = tables.first_masker[group]; masker < tables.end_masker[group]; ++masker) {
            const V e = load_first<V, width>(sums.energy + masker * width);
            const V w = load_first<V, width>(sums.weighted + masker * width);
#pragma GCC unroll 4
            for (int i = 0; i < size; ++i) {
                const V gain = load_each<V, width>(gains[masker].begin() + i * neighbours);
                energy[i] = energy[i] + e * gain;
                weighted[i] = weighted[i] + gain * w;
            }
        }
        for (int i = 0; i < size; ++i) {
            heard.energy[group * size + i] = energy[i];
            heard.weighted[group * size + i] = weighted[i];
        }
    }
}

/// From how far a partition is from predictable to how far in dB its masking threshold lies below its
/// energy.
/// @param p  the first one of those in the lanes
/// @param c  unpredictability, limited to 0.05 .. 0.5
template <class V, int width>
VELA_INLINE V masking_offset(const standard_tables &tables, int p, V c) {
    // Tonality: 1 for c = 0.05 and below, 0 for 0.5 and above, -log10 c - log10 2 in between.
    const V tonality = splat<V>(-0.434294482) * logarithm(c) - splat<V>(0.301029996);
    const V offset = load_each<V, width>(tables.tone_masking.begin() + p) * tonality
                     + splat<V>(5.5) * (splat<V>(1.0) - tonality);
    return max_of(offset, load_each<V, width>(tables.min_offset.begin() + p));
}

/// Masking threshold per line of each partition: one step after the other for all partitions, because
/// whole chains would be too long to overlap.
template <class V, int width>
void mask(const standard_tables &tables, const spectrum_sums &sums, double *out) noexcept {
    spread_sums<V, width> heard;
    spread(tables, sums, heard);
    constexpr int size = heard.size, neighbours = heard.neighbours;
    const V zero = splat<V>(0.0);
    V c[size], offset[size];
    for (int i = 0; i < size; ++i) {
        const V energy = heard.energy[i];
        const V unpredictability = select(energy == zero, zero, heard.weighted[i] / energy);
        c[i] = clamp(unpredictability, splat<V>(0.05), splat<V>(0.5));
    }
    for (int i = 0; i < size; ++i)
        offset[i] = masking_offset<V, width>(tables, i * neighbours, c[i]);
    for (int i = 0; i < size; ++i) {
        const V base =
            heard.energy[i] / load_each<V, width>(tables.spread_norm.begin() + i * neighbours);
        store(out + i * lanes<V>, base * exponential(splat<V>(-ln10_by_10) * offset[i]));
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
template <class V, int width, int channels>
void ratios(const standard_tables &tables, const spectrum_sums &sums, const double *mask,
            double *thresholds, double *ratio) noexcept {
    using S = lane_type<width>;
    constexpr int least_threshold_subbands = 13;
    // The limits matter for infinities in the input only: every ratio is finite.
    const S highest = splat<S>(1e300);
    S t = line_threshold<S, channels>(tables, mask, thresholds, 0);
    for (int sb = 0; sb < 32; ++sb) {
        S sum = t, least = min_of(t, splat<S>(no_threshold));
        for (int k = 16 * sb + 1; k <= 16 * sb + 16; ++k) {
            t = line_threshold<S, channels>(tables, mask, thresholds, k);
            sum = sum + t;
            least = min_of(t, least);
        }
        const S E = clamp(load<S>(sums.subband + sb * width), splat<S>(0.5), highest);
        const S T = min_of(sb < least_threshold_subbands ? splat<S>(17.0) * least : sum, highest);
        store(ratio + sb * width, E / T);
    }
    for (int i = 0; i < 32 * width; i += lanes<V>)
        store(ratio + i, splat<V>(4.342944819) * logarithm(load<V>(ratio + i)));
}

} // namespace vela::VELA_LEVEL
