// The psychoacoustic model's kernels, compiled once per level.
//
// Their lanes are passes: one window of one channel each. Everything that a pass computes stays in its
// lane, so that all steps of the model run over plain consecutive arrays. A value with index i of all
// lanes stands at i * lanes.
#pragma once

#include "psy/standard_tables.hpp"
#include "psy/tuned_tables.hpp"
#include "simd/level.hpp"

namespace vela {

inline constexpr int transform_length = 1024;
inline constexpr int max_lanes = 8;
inline constexpr int x_alignment = 64;

/// What the model keeps of a spectrum, of all lanes.
struct spectrum_sums {
    // Per partition: energy, and energy weighted with the unpredictability.
    double energy[padded_partitions * max_lanes];
    double weighted[padded_partitions * max_lanes];
    /// Energy per subband: of lines 16 sb .. 16 sb + 16, so that neighbours share one.
    double subband[32 * max_lanes];
};

// Histories, values of earlier passes, are kept alike by all arrangements of a stream: of each value the
// channels that stand side by side, two passes before those of a run of the kernels, behind them those of
// the pass before. A history of one pass has the latter alone.

/// What is kept of a pass for the prediction of later ones: of each line the cosine and the sine of its
/// phase and twice its magnitude. Line 0 stands behind the others, with room for as many lines as lanes.
inline constexpr int kept_lines = line_count - 1 + max_lanes;
inline constexpr int history_values = 3 * kept_lines;

/// The kernels for one arrangement of passes in lanes.
struct psy_kernels {
    /// Lane t is pass t / channels of channel t % channels: `channels` channels and lanes / channels
    /// consecutive passes of each are analysed at once.
    int lanes, channels;

    /// Windows one block of 1024 samples per lane and transforms them; x[1024 * lanes], aligned to
    /// x_alignment, receives the discrete Hartley transform H in bit-reversed order.
    void (*transform)(const float *const *windows, double *x) noexcept;

    /// Energies and unpredictabilities of the lines, summed up.
    /// @param history  of two passes, history_values values; before the first pass phases are 0
    void (*analyze_lines)(const standard_tables &tables, const double *x, double *history,
                          spectrum_sums &sums) noexcept;

    /// Masking threshold per line of each partition: mask[padded_partitions * lanes].
    void (*mask)(const standard_tables &tables, const spectrum_sums &sums, double *mask) noexcept;

    /// Signal-to-mask ratio in dB per subband: ratio[32 * lanes].
    /// @param thresholds  Layer I: history of one pass, against pre-echo, line_count values. Null in
    ///                    Layer II.
    void (*ratios)(const standard_tables &tables, const spectrum_sums &sums, const double *mask,
                   double *thresholds, double *ratio) noexcept;

    // The tuned model.

    /// Energy per partition: energy[padded_partitions * lanes].
    void (*partition_energies)(const partition_lines &partitions, const double *x,
                               double *energy) noexcept;

    /// Weight of noise per subband: weight[32 * lanes].
    /// @param history  excitations of two passes, padded_partitions values, 0 at the start
    void (*weigh_noise)(const tuned_tables &tables, const double *energy, double *history,
                        double *weight) noexcept;
};

/// The kernels of a level for streams of one or two channels: those with most passes side by side, but
/// not more than `passes`.
const psy_kernels &psy_kernels_of(level which, int channels, int passes) noexcept;

} // namespace vela
