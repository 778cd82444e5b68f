// The analysis room's kernels, compiled once per level.
#pragma once

#include "simd/level.hpp"

#include <cstdint>

namespace vela {

/// Conversion of one PCM format (little-endian) to floats on the scale of 16-bit integers.
struct pcm_kernels {
    int width; ///< bytes of a sample
    /// `count` consecutive samples.
    void (*convert)(const std::uint8_t *pcm, int count, float *out) noexcept;
    /// `pairs` interleaved samples of two channels.
    void (*convert_pairs)(const std::uint8_t *pcm, int pairs, float *left, float *right) noexcept;
};

struct analysis_kernels {
    /// 16-bit and 24-bit integers; floats with full scale 1.0.
    pcm_kernels s16, s24, f32;

    /// The same numbers as doubles; count is a multiple of 32.
    void (*to_doubles)(const float *samples, int count, double *out) noexcept;

    /// Filterbank outputs of twelve consecutive time steps: out[step][subband]. The first step's window
    /// covers samples[0..511], each further step's begins 32 samples later.
    void (*analyze_part)(const double *samples, double (*out)[32]) noexcept;
};

const analysis_kernels &analysis_kernels_of(level which) noexcept;

} // namespace vela
