// Threshold calculation partitions and the spreading function, computed for a sampling rate.
#pragma once

#include "psy/quiet_threshold.hpp"
#include "simd/table.hpp"

namespace vela {

/// Partitions are at most a third of a bark wide; 44.1 and 48 kHz have 63, 32 kHz has 59.
inline constexpr int partition_count = 63;
/// Padded to whole groups.
inline constexpr int padded_partitions = 64;
/// Rows of the spreading matrix that are multiplied side by side.
inline constexpr int spreading_group = 4;

/// Consecutive lines of one partition and one subband.
struct line_run {
    int end; ///< one past the last line
    int partition, subband;
    bool closes_partition, closes_subband;
};

/// The threshold calculation partitions.
struct partition_lines {
    /// First line of each partition, then line_count; partitions without lines repeat line_count.
    table<int, padded_partitions + 1> first_line;
    /// Partition of each line.
    table<unsigned char, line_count> of_line;
};

/// Lays the partitions: a line opens a new one when it lies more than 0.33 bark above the first line of
/// the open one. Returns the mean bark value of each partition, 0 for those without lines.
table<double, partition_count> lay_partitions(partition_lines &lines, int sample_rate) noexcept;

/// Everything about the masking model that depends on the sampling rate alone (ISO/IEC 11172-3, D.2,
/// with the partitions computed from critical band edges instead of tabulated per rate).
struct partition_tables : partition_lines {
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

void make_partition_tables(partition_tables &tables, int sample_rate) noexcept;

} // namespace vela
