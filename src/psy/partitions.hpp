// Threshold calculation partitions and the spreading function, computed for a sampling rate.
#pragma once

#include "psy/quiet_threshold.hpp"

#include <array>

namespace vela {

/// Partitions are at most a third of a bark wide; 44.1 and 48 kHz have 63, 32 kHz has 59.
inline constexpr int partition_count = 63;
/// Rows and columns padded to whole groups of lanes.
inline constexpr int padded_partitions = 64;
/// Rows of the spreading matrix that are multiplied side by side; a multiple of every lane count.
inline constexpr int spreading_group = 8;

/// Everything about the masking model that depends on the sampling rate alone (ISO/IEC 11172-3, D.2,
/// with the partitions computed from critical band edges instead of tabulated per rate).
struct partition_tables {
    /// First line of each partition, then line_count; partitions without lines repeat line_count.
    std::array<int, padded_partitions + 1> first_line;
    /// Partition of each line.
    std::array<unsigned char, line_count> of_line;
    /// Masking offset of a tone in dB: max(bark + 15.5, 24.5).
    std::array<double, padded_partitions> tone_masking;
    /// Least offset in dB by the partition's bark value, rounded.
    std::array<double, padded_partitions> min_offset;
    /// Lines of the partition times the sum of its spreading row, so that a masking threshold is one
    /// per line; 1 for partitions without lines, whose results nobody reads.
    std::array<double, padded_partitions> spread_norm;
    /// spreading[masker][maskee]: the gain from a masker's energy into a maskee's partition. Zero
    /// outside each maskee's run of maskers, which starts at its first non-zero gain and ends before
    /// the next zero.
    std::array<std::array<double, padded_partitions>, partition_count> spreading;
    /// For each group of maskees, the maskers that any of them hears: first, and one past the last.
    std::array<int, padded_partitions / spreading_group> first_masker, end_masker;
};

void make_partition_tables(partition_tables &tables, int sample_rate) noexcept;

} // namespace vela
