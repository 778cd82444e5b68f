// The analysis room's kernels, compiled once per level.
#pragma once

#include "simd/level.hpp"

#include <cstdint>

namespace vela {

/// Samples of one channel arranged for the filterbank: column r holds every 32nd sample from the r-th
/// on, as doubles, so that the same tap of consecutive time steps is contiguous.
struct sample_columns {
    static constexpr int stride = 52;
    alignas(32) double at[32 * stride];
};

/// Conversion of one PCM format (little-endian) to floats on the scale of 16-bit integers.
struct pcm_kernels {
    int width; ///< bytes of a sample
    /// `count` consecutive samples.
    void (*widen)(const std::uint8_t *pcm, int count, float *out) noexcept;
    /// `pairs` interleaved samples of two channels.
    void (*split)(const std::uint8_t *pcm, int pairs, float *left, float *right) noexcept;
};

struct analysis_kernels {
    /// 16-bit and 24-bit integers; floats with full scale 1.0.
    pcm_kernels s16, s24, f32;

    /// Arranges rows * 32 samples from `samples` on; rows <= sample_columns::stride.
    void (*arrange)(const float *samples, int rows, sample_columns &columns) noexcept;

    /// Filterbank outputs of twelve consecutive time steps: out[step][subband]. The first step's window
    /// covers rows first_row .. first_row + 15 of the columns, each further step's one row more.
    void (*analyze_part)(const sample_columns &columns, int first_row, double (*out)[32]) noexcept;
};

const analysis_kernels &analysis_kernels_of(level which) noexcept;

} // namespace vela
