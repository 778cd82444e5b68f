// Energy and unpredictability of each line (ISO/IEC 11172-3, D.2.4), summed over the partitions.
#pragma once

#include "psy/history_kernel.hpp"
#include "psy/transform_kernel.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// As many lines as a subband has: what one step computes for all of them and leaves to the next. Where the
/// passes of a line, `width` of them, leave lanes free, neighbouring lines fill those.
///
/// A line's value is X = r e^(i phi). Values and magnitudes are kept doubled, 2 X and 2 r, energies
/// four times: a pair of Hartley values a = H[k], b = H[1024 - k] gives 2 X[k] = (a + b) + i (b - a).
/// Lines 0 and 512 have no partner. They follow the same rules with a = 0 and b = H[k], but with |X|^2
/// = H[k]^2, so that their "cosine" and "sine" are both 1/2 or both -1/2.
template <class V, int width>
struct line_block {
    static constexpr int lines = 16, neighbours = lanes<V> / width, size = lines / neighbours;

    V re[size], im[size];       ///< 2 X
    V energy[size];             ///< 4 r^2
    single<V> seed[size];       ///< of the inverse root of the energy
    V cosine[size], sine[size]; ///< of phi; 1 and 0 in silence
    V magnitude[size];          ///< 2 r
    V distance[size];           ///< |2 X - 2 r^ e^(i phi^)|^2
    V together[size];           ///< 2 (r + |r^|)
    V weighted[size];           ///< energy times unpredictability
};

// The steps run over a whole block each instead of one behind the other for a line: a line's chain of
// roots and divisions takes 200 cycles, and a processor can look ahead no further than two such chains. What
// lies between the seed of the second root and the sums is a step too, not because of its length: sums are
// added up line by line, whatever a vector holds.

template <class V, int width>
VELA_INLINE void set_energy(line_block<V, width> &block, int i, V energy) {
    block.energy[i] = energy;
    block.seed[i] = inverse_root_seed(energy);
}

/// Lines k, k + 1, ... of 1 .. 511.
template <class V, int width>
VELA_INLINE void read_pairs(line_block<V, width> &block, int i, const double *x, int k) {
    const V a = load_groups<V, width>([=](int j) { return x + width * place_of[k + j]; });
    const V b =
        load_groups<V, width>([=](int j) { return x + width * place_of[transform_length - k - j]; });
    const V re = a + b, im = b - a;
    block.re[i] = re;
    block.im[i] = im;
    set_energy(block, i, re * re + im * im);
}

/// Line 0 or 512, to the block's given line.
template <class V, int width>
VELA_INLINE void read_unpaired(line_block<V, width> &block, int line, const double *x, int k) {
    const auto h = load<lane_type<width>>(x + width * place_of[k]);
    const int i = line / block.neighbours;
    const auto put = [=](V &group, auto value) {
        store(reinterpret_cast<double *>(&group) + line % line_block<V, width>::neighbours * width,
              value);
    };
    put(block.re[i], h);
    put(block.im[i], h);
    put(block.energy[i], splat<lane_type<width>>(4.0) * h * h);
    set_energy(block, i, block.energy[i]);
}

template <class V, int width>
VELA_INLINE void find_phase(line_block<V, width> &block, int i) {
    const V energy = block.energy[i], zero = splat<V>(0.0);
    const V inverse = inverse_root<V>(energy, block.seed[i]);
    block.cosine[i] = block.re[i] * inverse + select(energy == zero, splat<V>(1.0), zero);
    block.sine[i] = block.im[i] * inverse;
    block.magnitude[i] = energy * inverse;
}

/// Predicts lines from the same lines of the two passes before, ' and '':
///
///     r^ = 2 r' - r''    phi^ = 2 phi' - phi''
///
/// and leaves their own values to later passes.
/// @param place  of the first line in the history
template <class V, int width, int channels>
VELA_INLINE void predict(line_block<V, width> &block, int i, double *history, int place) {
    const auto swap = [=](int value, V now) {
        return exchange<V, channels, width>(history, value * kept_lines + place, now);
    };
    const auto [cosine1, cosine2] = swap(0, block.cosine[i]);
    const auto [sine1, sine2] = swap(1, block.sine[i]);
    const auto [r1, r2] = swap(2, block.magnitude[i]);
    const V cosine_of_twice = cosine1 * cosine1 - sine1 * sine1;
    const V sine_of_twice = (cosine1 + cosine1) * sine1;
    const V cosine = cosine_of_twice * cosine2 + sine_of_twice * sine2;
    const V sine = sine_of_twice * cosine2 - cosine_of_twice * sine2;
    const V predicted = (r1 + r1) - r2;
    const V U = block.re[i] - cosine * predicted, W = block.im[i] - sine * predicted;
    block.distance[i] = U * U + W * W;
    block.together[i] = block.magnitude[i] + magnitude(predicted);
}

/// Weights energies with the unpredictability
///
///     c = |X - r^ e^(i phi^)| / (r + |r^|).
template <class V, int width>
VELA_INLINE void weigh(line_block<V, width> &block, int i) {
    block.weighted[i] = block.energy[i] * root_over(block.distance[i], block.together[i]);
}

/// Sums of energies and weighted energies, line by line. Lanes are passes.
template <class S>
struct line_sums {
    S energy{}, partition{}, weighted{}, subband{}; ///< the last line's energy; four times the sums

    template <class V, int width>
    VELA_INLINE void add(const line_block<V, width> &block, int line) {
        const auto value = [=](const V *values) {
            return load<S>(reinterpret_cast<const double *>(values) + line * width);
        };
        energy = value(block.energy);
        partition = partition + energy;
        weighted = weighted + value(block.weighted);
        subband = subband + energy;
    }
    VELA_INLINE void close_partition(spectrum_sums &sums, int p) {
        store(sums.energy + p * lanes<S>, splat<S>(0.25) * partition);
        store(sums.weighted + p * lanes<S>, splat<S>(0.25) * weighted);
        partition = weighted = splat<S>(0.0);
    }
    /// The last line is the first one of the next subband, too.
    VELA_INLINE void close_subband(spectrum_sums &sums, int sb) {
        store(sums.subband + sb * lanes<S>, splat<S>(0.25) * subband);
        subband = energy;
    }
};

/// @tparam width     passes side by side
/// @tparam channels  among them
template <class V, int width, int channels>
void analyze_lines(const standard_tables &tables, const double *x, double *history,
                   spectrum_sums &result) noexcept {
    std::memset(result.energy, 0, sizeof result.energy);
    std::memset(result.weighted, 0, sizeof result.weighted);
    line_block<V, width> block;
    line_sums<lane_type<width>> sums;
    block.re[0] = block.im[0] = block.energy[0] = splat<V>(0.0);
    read_unpaired(block, 0, x, 0);
    find_phase(block, 0);
    predict<V, width, channels>(block, 0, history, line_count - 1);
    weigh(block, 0);
    sums.add(block, 0);

    constexpr int size = block.size, neighbours = block.neighbours;
    const line_run *run = tables.run_list.begin();
    int k = 1;
    for (int sb = 0; sb < 32; ++sb) {
        // Lines 16 sb + 1 .. 16 sb + 16, the last of which closes the subband.
        const int first = k;
        for (int i = 0; i < size; ++i)
            read_pairs(block, i, x, first + i * neighbours);
        if (sb == 31) read_unpaired(block, block.lines - 1, x, first + block.lines - 1);
        for (int i = 0; i < size; ++i)
            find_phase(block, i);
#pragma GCC ivdep // each line has its own place in the history
        for (int i = 0; i < size; ++i)
            predict<V, width, channels>(block, i, history, first - 1 + i * neighbours);
        for (int i = 0; i < size; ++i)
            weigh(block, i);
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
