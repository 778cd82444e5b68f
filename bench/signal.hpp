// Test signal and levels for the benchmarks.
#pragma once

#include "simd/level.hpp"

#include <cstdint>
#include <vector>

namespace vela::bench {

/// Interleaved 16-bit samples with what an encoder meets in music: tones that come and go, noise of
/// varying loudness and attacks.
std::vector<std::int16_t> make_music(double seconds, int sample_rate, int channels);

/// The levels that this machine runs.
std::vector<level> supported_levels();

} // namespace vela::bench
