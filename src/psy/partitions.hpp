// The threshold calculation partitions, computed for a sampling rate.
#pragma once

#include "simd/table.hpp"

namespace vela {

/// Lines 0..512 of the 1024-point transform.
inline constexpr int line_count = 513;
/// Partitions are at most a third of a bark wide; 44.1 and 48 kHz have 63, 32 kHz has 59.
inline constexpr int partition_count = 63;
/// Padded to whole groups.
inline constexpr int padded_partitions = 64;

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

} // namespace vela
