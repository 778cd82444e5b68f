// What the standard's model knows about a sampling rate.
#pragma once

#include "psy/partitions.hpp"

namespace vela {

/// Rows of the spreading matrix that are multiplied side by side.
inline constexpr int spreading_group = 4;

/// Consecutive lines of one partition and one subband.
struct line_run {
    int end; ///< one past the last line
    int partition, subband;
    bool closes_partition, closes_subband;
};

/// Everything about the masking model that depends on the sampling rate alone (ISO/IEC 11172-3, D.2,
/// with the partitions computed from critical band edges instead of tabulated per rate).
struct standard_tables : partition_lines {
    /// All lines, in order, as runs.
    table<line_run, partition_count + 32> run_list;
    int run_count;
    /// Masking offset of a tone in dB: max(bark + 15.5, 24.5).
    table<double, padded_partitions> tone_masking;
    /// Least offset in dB by the partition's bark value, rounded.
    table<double, padded_partitions> min_offset;
    /// Lines of the partition times the sum of its spreading row, so that a masking threshold is one
    /// per line; 1 for partitions without lines, whose results nobody reads.
    table<double, padded_partitions> spread_norm;
    /// spreading[group][masker][i]: the gain from a masker's energy into partition group * 4 + i. Zero
    /// outside each maskee's run of maskers, which starts at its first non-zero gain and ends before
    /// the next zero.
    table<table<table<double, spreading_group>, partition_count>, padded_partitions / spreading_group>
        spreading;
    /// For each group of maskees, the maskers that any of them hears: first, and one past the last.
    table<int, padded_partitions / spreading_group> first_masker, end_masker;
    /// Threshold in quiet per line.
    const double *quiet;
};

void make_standard_tables(standard_tables &tables, int sample_rate) noexcept;

} // namespace vela
