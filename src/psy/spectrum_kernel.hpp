// Energy and unpredictability of each line (ISO/IEC 11172-3, D.2.4), summed over the partitions.
#pragma once

#include "psy/kernels.hpp"
#include "simd/lanes.hpp"

#include <array>
#include <cstdint>

namespace vela::VELA_LEVEL {

/// Where the transform leaves H[k]: the place of k with its ten bits reversed.
inline constexpr std::array<std::uint16_t, transform_length> place_of = [] {
    std::array<std::uint16_t, transform_length> reversed{};
    for (unsigned i = 1; i < transform_length; ++i) {
        reversed[i] = static_cast<std::uint16_t>(reversed[i / 2] / 2 + (i % 2) * transform_length / 2);
    }
    return reversed;
}();

/// A line of a pass as a pair of Hartley values a = H[k] and b = H[1024 - k] and its magnitude r. The
/// DFT is X[k] = ((a + b) + i (b - a)) / 2. The unpaired lines 0 and 512 have a = 0 and b = H[k].
template <class V>
struct line_values {
    V a, b, r;
};

/// The distance of a line's value X = r e^(i phi) from the value predicted from the two passes before,
/// relative to the sum of their magnitudes:
///
///     r^ = 2 r' - r''    phi^ = 2 phi' - phi''    c = |X - r^ e^(i phi^)| / (r + |r^|)
///
/// The cosine and sine of phi^ need no trigonometric function. A pair gives cos phi = (a + b) / 2r and
/// sin phi = (b - a) / 2r, hence cos 2 phi = 2ab / 2r^2 and sin 2 phi = (b^2 - a^2) / 2r^2: P / D and Q
/// / D are first these for the previous pass, then, turned back by phi'', cos phi^ and sin phi^.
/// Everything is brought over the one denominator 2 D (r + |r^|), so that a single division is left.
template <class V>
VELA_INLINE V unpredictability(const line_values<V> &now, const line_values<V> &previous,
                               const line_values<V> &oldest) {
    const V zero = splat<V>(0.0), one = splat<V>(1.0), two = splat<V>(2.0), half = splat<V>(0.5);
    const auto no_previous = previous.r == zero;
    V P = select(no_previous, one, two * previous.a * previous.b);
    V Q = select(no_previous, zero, previous.b * previous.b - previous.a * previous.a);
    V D = select(no_previous, one, two * previous.r * previous.r);

    const auto no_oldest = oldest.r == zero;
    const V m = (P + Q) * (oldest.a + oldest.b) * half;
    const V turned_p = m - Q * oldest.a, turned_q = m - oldest.b * P;
    P = select(no_oldest, P, turned_p);
    Q = select(no_oldest, Q, turned_q);
    D = select(no_oldest, D, D * oldest.r);

    const V predicted = two * previous.r - oldest.r;
    const V size = now.r + magnitude(predicted);
    const V U = P * (two * predicted) - (now.a + now.b) * D;
    const V W = Q * (two * predicted) - (now.b - now.a) * D;
    return select(size == zero, zero, square_root(U * U + W * W) / (two * D * size));
}

/// Energy of line k and its share in the sum weighted with the unpredictability.
/// @tparam passes  consecutive passes side by side. With two, the history is the frame before: for each
///                 lane the pass two before its own.
template <class V, int passes>
VELA_INLINE void analyze_line(const double *x, const double *newest, double *oldest, int k, V &energy,
                              V &weighted) {
    constexpr int L = lanes<V>;
    const bool paired = k % 512 != 0;
    const V h = load<V>(x + L * place_of[static_cast<unsigned>(k)]);
    line_values<V> now;
    now.a = paired ? h : splat<V>(0.0);
    now.b = paired ? load<V>(x + L * place_of[static_cast<unsigned>(transform_length - k)]) : h;
    // |X|^2 = (a^2 + b^2) / 2 for pairs, H^2 for the others.
    energy = (now.a * now.a + now.b * now.b) * splat<V>(paired ? 0.5 : 1.0);
    now.r = square_root(energy);

    double *const slot = oldest + 3 * k * L;
    const line_values<V> before{load<V>(slot), load<V>(slot + L), load<V>(slot + 2 * L)};
    line_values<V> previous;
    if constexpr (passes == 2) {
        previous = {preceding(before.a, now.a), preceding(before.b, now.b), preceding(before.r, now.r)};
    } else {
        const double *const latest = newest + 3 * k * L;
        previous = {load<V>(latest), load<V>(latest + L), load<V>(latest + 2 * L)};
    }
    store(slot, now.a);
    store(slot + L, now.b);
    store(slot + 2 * L, now.r);
    weighted = energy * unpredictability(now, previous, before);
}

template <class V, int passes>
void analyze_lines(const partition_tables &tables, const double *x, double *history, int newest,
                   spectrum_sums &sums) noexcept {
    constexpr int L = lanes<V>;
    const double *const newest_half = history + newest * history_values * L;
    double *const oldest_half = passes == 2 ? history : history + (1 - newest) * history_values * L;
    const V zero = splat<V>(0.0);
    for (int p = 0; p < padded_partitions; ++p) {
        store(sums.energy + p * L, zero);
        store(sums.weighted + p * L, zero);
    }
    // A run of lines ends where its partition or its subband ends.
    V partition_energy = zero, partition_weighted = zero, subband_energy = zero;
    V energy = zero, weighted = zero;
    int k = 0;
    for (const line_run &run : tables.runs()) {
        for (; k < run.end; ++k) {
            analyze_line<V, passes>(x, newest_half, oldest_half, k, energy, weighted);
            partition_energy = partition_energy + energy;
            partition_weighted = partition_weighted + weighted;
            subband_energy = subband_energy + energy;
        }
        if (run.closes_partition) {
            store(sums.energy + run.partition * L, partition_energy);
            store(sums.weighted + run.partition * L, partition_weighted);
            partition_energy = partition_weighted = zero;
        }
        if (run.closes_subband) {
            // The last line is the first one of the next subband, too.
            store(sums.subband + run.subband * L, subband_energy);
            subband_energy = energy;
        }
    }
}

} // namespace vela::VELA_LEVEL
