// The threshold in quiet per transform line.
#pragma once

#include "psy/partitions.hpp"
#include "simd/table.hpp"

namespace vela {

/// Threshold in quiet as energies in the units of the model's spectrum (16-bit sample scale, Hann
/// window, unnormalised transform), constant over runs of 1, 2, 4 and 8 lines that widen with
/// frequency.
/// @param sample_rate  32000 or 44100 Hz; every other rate gets the 48000 Hz table
const table<double, line_count> &quiet_threshold(int sample_rate) noexcept;

} // namespace vela
