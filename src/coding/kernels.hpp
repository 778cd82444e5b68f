// The coding room's kernels, compiled once per level.
#pragma once

#include "simd/level.hpp"

#include <cstdint>

namespace vela {

/// Samples of one part of a channel: [sample][subband].
using part_samples = double[12][32];
/// Codes of one part of a channel: [sample][subband].
using part_codes = std::int32_t[12][32];
/// Codes of a frame: [channel][part][sample][subband].
using sample_codes = std::int32_t[2][3][12][32];

/// The quantizer of each subband of one part, in lanes. A subband without bits
/// has zeros throughout, so that its codes are 0.
struct part_quantizer {
    double inverse_scalefactor[32];
    /// Layer I: codes are a x + b scaled to half_steps = 2^n, the top bit
    /// inverted.
    double a[32], b[32];
    /// Layer I 2^n; Layer II steps / 2.
    double half_steps[32];
    /// The highest code: keeps a sample at or beyond its scale factor within its
    /// field.
    double limit[32];
};

struct coding_kernels {
    /// Largest magnitude of each subband's twelve samples.
    void (*peaks)(const part_samples &samples, double (&peak)[32]) noexcept;

    /// (left + right) / 2.
    void (*combine)(const part_samples &left, const part_samples &right, part_samples &out) noexcept;

    /// Quantize subbands first .. end - 1, both multiples of 4.
    void (*quantize_layer1)(const part_samples &samples, const part_quantizer &quantizer, int first,
                            int end, part_codes &codes) noexcept;
    void (*quantize_layer2)(const part_samples &samples, const part_quantizer &quantizer, int first,
                            int end, part_codes &codes) noexcept;
};

const coding_kernels &coding_kernels_of(level which) noexcept;

} // namespace vela
