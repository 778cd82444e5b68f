// The psychoacoustic model's kernels, compiled once per level.
//
// Their lanes are passes: one window of one channel each. Everything that a pass computes stays in its
// lane, so that all steps of the model run over plain consecutive arrays. A value with index i of all
// lanes stands at i * lanes.
#pragma once

#include "psy/partitions.hpp"
#include "psy/tuned_tables.hpp"
#include "simd/level.hpp"

namespace vela {

inline constexpr int transform_length = 1024;
inline constexpr int max_lanes = 4;
inline constexpr int x_alignment = 32;

/// What the model keeps of a spectrum, of all lanes.
struct spectrum_sums {
    // Per partition: energy, and energy weighted with the unpredictability.
    double energy[padded_partitions * max_lanes];
    double weighted[padded_partitions * max_lanes];
    /// Energy per subband: of lines 16 sb .. 16 sb + 16, so that neighbours share one.
    double subband[32 * max_lanes];
};

/// What is kept of a pass for the prediction of later ones: of each line the cosine and the sine of its
/// phase and twice its magnitude.
inline constexpr int history_values = 3 * line_count;

/// A history without sound: magnitude 0, phase 0. For all lanes, in every arrangement.
void clear_history(double (&history)[history_values * max_lanes], int lanes) noexcept;

/// The kernels for one arrangement of passes in lanes.
struct psy_kernels {
    int lanes;
    /// Consecutive passes of a channel that stand side by side, 1 or 2; lanes / passes channels are
    /// analysed at once.
    int passes;

    /// Windows one block of 1024 samples per lane and transforms them; x[1024 * lanes], aligned to
    /// x_alignment, receives the discrete Hartley transform H in bit-reversed order.
    void (*transform)(const float *const *windows, double *x) noexcept;

    /// Energies and unpredictabilities of the lines, summed up.
    /// @param history  history_values * lanes doubles: twice that many with one pass per channel,
    ///                 cleared at the start; updated
    /// @param newest   with one pass per channel: which half holds the pass before this one; the
    ///                 other one is replaced
    void (*analyze_lines)(const partition_tables &tables, const double *x, double *history, int newest,
                          spectrum_sums &sums) noexcept;

    /// Masking threshold per line of each partition: mask[padded_partitions * lanes].
    void (*mask)(const partition_tables &tables, const spectrum_sums &sums, double *mask) noexcept;

    /// Signal-to-mask ratio in dB per subband: ratio[32 * lanes].
    /// @param previous  Layer I: the thresholds of the pass before, against pre-echo,
    ///                  line_count * lanes doubles; updated. Null in Layer II.
    void (*ratios)(const partition_tables &tables, const spectrum_sums &sums, const double *mask,
                   double *previous, double *ratio) noexcept;

    // The tuned model.

    /// Energy per partition: energy[padded_partitions * lanes].
    void (*partition_energies)(const partition_lines &partitions, const double *x,
                               double *energy) noexcept;

    /// Weight of noise per subband: weight[32 * lanes].
    /// @param history  excitations, padded_partitions * lanes doubles: twice that many with one pass
    ///                 per channel, 0 at the start; updated
    /// @param newest   as in analyze_lines
    void (*weigh_noise)(const tuned_tables &tables, const double *energy, double *history, int newest,
                        double *weight) noexcept;
};

/// The kernels of a level for a stream.
const psy_kernels &psy_kernels_of(level which, int layer, int channels) noexcept;

} // namespace vela
