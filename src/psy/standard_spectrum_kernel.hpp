// Energy and unpredictability of each line (ISO/IEC 11172-3, D.2.4), summed over the partitions.
#pragma once

#include "psy/history_kernel.hpp"
#include "psy/transform_kernel.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// As many lines as a subband has: what one step computes for all of them and leaves to the next.
///
/// A line's value is X = r e^(i phi). Values and magnitudes are kept doubled, 2 X and 2 r, energies
/// four times: a pair of Hartley values a = H[k], b = H[1024 - k] gives 2 X[k] = (a + b) + i (b - a).
/// Lines 0 and 512 have no partner. They follow the same rules with a = 0 and b = H[k], but with |X|^2
/// = H[k]^2, so that their "cosine" and "sine" are both 1/2 or both -1/2.
template <class V>
struct line_block {
    static constexpr int size = 16;

    V re[size], im[size];       ///< 2 X
    V energy[size];             ///< 4 r^2
    single<V> seed[size];       ///< of the inverse root of the energy
    V cosine[size], sine[size]; ///< of phi; 1 and 0 in silence
    V magnitude[size];          ///< 2 r
    V distance[size];           ///< |2 X - 2 r^ e^(i phi^)|^2
    V together[size];           ///< 2 (r + |r^|)
};

// The steps run over a whole block each instead of one behind the other for a line: a line's chain of
// roots and divisions takes 200 cycles, and a processor can look ahead no further than two such chains.

template <class V>
VELA_INLINE void set_line(line_block<V> &block, int i, V re, V im, V energy) {
    block.re[i] = re;
    block.im[i] = im;
    block.energy[i] = energy;
    block.seed[i] = inverse_root_seed(energy);
}

/// Line k = 1 .. 511.
template <class V>
VELA_INLINE void read_pair(line_block<V> &block, int i, const double *x, int k) {
    const V a = load<V>(x + lanes<V> * place_of[k]);
    const V b = load<V>(x + lanes<V> * place_of[transform_length - k]);
    const V re = a + b, im = b - a;
    set_line(block, i, re, im, re * re + im * im);
}

/// Lines 0 and 512.
template <class V>
VELA_INLINE void read_unpaired(line_block<V> &block, int i, const double *x, int k) {
    const V h = load<V>(x + lanes<V> * place_of[k]);
    set_line(block, i, h, h, splat<V>(4.0) * h * h);
}

template <class V>
VELA_INLINE void find_phase(line_block<V> &block, int i) {
    const V energy = block.energy[i], zero = splat<V>(0.0);
    const V inverse = inverse_root<V>(energy, block.seed[i]);
    block.cosine[i] = block.re[i] * inverse + select(energy == zero, splat<V>(1.0), zero);
    block.sine[i] = block.im[i] * inverse;
    block.magnitude[i] = energy * inverse;
}

/// Predicts the line from the same line of the two passes before, ' and '':
///
///     r^ = 2 r' - r''    phi^ = 2 phi' - phi''
///
/// and leaves its own value to later passes.
template <class V, int channels>
VELA_INLINE void predict(line_block<V> &block, int i, double *history, int line) {
    const auto [cosine1, cosine2] = exchange<V, channels>(history, line, block.cosine[i]);
    const auto [sine1, sine2] = exchange<V, channels>(history, line_count + line, block.sine[i]);
    const auto [r1, r2] = exchange<V, channels>(history, 2 * line_count + line, block.magnitude[i]);
    const V cosine_of_twice = cosine1 * cosine1 - sine1 * sine1;
    const V sine_of_twice = (cosine1 + cosine1) * sine1;
    const V cosine = cosine_of_twice * cosine2 + sine_of_twice * sine2;
    const V sine = sine_of_twice * cosine2 - cosine_of_twice * sine2;
    const V predicted = (r1 + r1) - r2;
    const V U = block.re[i] - cosine * predicted, W = block.im[i] - sine * predicted;
    block.distance[i] = U * U + W * W;
    block.together[i] = block.magnitude[i] + magnitude(predicted);
}

/// Sums of energies and of energies weighted with the unpredictability
///
///     c = |X - r^ e^(i phi^)| / (r + |r^|).
template <class V>
struct line_sums {
    V energy{}, partition{}, weighted{}, subband{}; ///< the last line's energy; four times the sums

    VELA_INLINE void add(const line_block<V> &block, int i) {
        energy = block.energy[i];
        partition = partition + energy;
        weighted = weighted + energy * root_over(block.distance[i], block.together[i]);
        subband = subband + energy;
    }
    VELA_INLINE void close_partition(spectrum_sums &sums, int p) {
        store(sums.energy + p * lanes<V>, splat<V>(0.25) * partition);
        store(sums.weighted + p * lanes<V>, splat<V>(0.25) * weighted);
        partition = weighted = splat<V>(0.0);
    }
    /// The last line is the first one of the next subband, too.
    VELA_INLINE void close_subband(spectrum_sums &sums, int sb) {
        store(sums.subband + sb * lanes<V>, splat<V>(0.25) * subband);
        subband = energy;
    }
};

/// @tparam channels  that stand side by side
template <class V, int channels>
void analyze_lines(const standard_tables &tables, const double *x, double *history,
                   spectrum_sums &result) noexcept {
    constexpr int L = lanes<V>, size = line_block<V>::size;
    for (int p = 0; p < padded_partitions; ++p) {
        store(result.energy + p * L, splat<V>(0.0));
        store(result.weighted + p * L, splat<V>(0.0));
    }
    line_block<V> block;
    line_sums<V> sums;
    read_unpaired(block, 0, x, 0);
    find_phase(block, 0);
    predict<V, channels>(block, 0, history, 0);
    sums.add(block, 0);

    const line_run *run = tables.run_list.begin();
    int k = 1;
    for (int sb = 0; sb < 32; ++sb) {
        // Lines 16 sb + 1 .. 16 sb + 16, the last of which closes the subband.
        const int first = k;
        const int pairs = sb < 31 ? size : size - 1;
        for (int i = 0; i < pairs; ++i)
            read_pair(block, i, x, first + i);
        if (pairs < size) read_unpaired(block, pairs, x, first + pairs);
        for (int i = 0; i < size; ++i)
            find_phase(block, i);
#pragma GCC ivdep // each line has its own place in the history
        for (int i = 0; i < size; ++i)
            predict<V, channels>(block, i, history, first + i);
        for (bool closed = false; !closed; ++run) {
            for (; k < run->end; ++k)
                sums.add(block, k - first);
            if (run->closes_partition) sums.close_partition(result, run->partition);
            closed = run->closes_subband;
        }
        sums.close_subband(result, sb);
    }
}

} // namespace vela::VELA_LEVEL
