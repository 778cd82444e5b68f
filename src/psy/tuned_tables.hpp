// What the tuned model knows about a sampling rate.
#pragma once

#include "psy/partitions.hpp"

namespace vela {

/// Constants of the tuned model, computed at Init. z(f) = 7 asinh(f / 650 Hz) is the frequency in Bark;
/// a line k stands for the width dz_k = z((k + 1/2) df) - z((k - 1/2) df), where df is the distance of
/// lines.
struct tuned_tables {
    partition_lines partitions;
    /// What is left of an amplitude that masks the next partition above (from p - 1 to p) and below
    /// (from p + 1 to p).
    table<double, padded_partitions> upward, downward;
    /// Makes a spectrum of the same energy in every Bark its own excitation.
    table<double, padded_partitions> spread_scale;
    /// From a partition's excitation to the threshold of each of its lines.
    table<double, padded_partitions> mask_share;
    /// Threshold in quiet of each of its lines.
    table<double, padded_partitions> quiet;
    /// What is left of an excitation after one pass.
    double fading;

    /// For each subband, the partitions that its noise falls into: first, and one past the last; and,
    /// one subband after the other, how much of it counts there: sums of
    /// cos^2(pi d / 2) dz_k over the partition's lines k, d = |k - 16 sb - 8| / 16 < 1.
    table<int, 32> first_heard, end_heard;
    table<double, 2 * padded_partitions + 64> heard_share;
};

/// @param step  samples from one pass to the next
void make_tuned_tables(tuned_tables &tables, int sample_rate, int step) noexcept;

} // namespace vela
