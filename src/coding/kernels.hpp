// The coding room's kernels, compiled once per level.
#pragma once

#include "simd/level.hpp"
#include "stream/bit_buffer.hpp"

#include <cstdint>

namespace vela {

/// Samples of one part of a channel: [sample][subband].
using part_samples = double[12][32];
/// Codes of one part of a channel: [sample][subband].
using part_codes = std::int32_t[12][32];
/// Codes of a frame: [channel][part][sample][subband].
using sample_codes = std::int32_t[2][3][12][32];

/// A quantizer in the form that the kernels compute with. No bits: zeros throughout, so that codes are
/// 0.
struct quantizer {
    /// Layer I: codes are a x + b scaled to half_steps = 2^n, the top bit inverted.
    double a, b;
    /// Layer I 2^n; Layer II steps / 2.
    double half_steps;
    /// The highest code: keeps a sample at or beyond its scale factor within its field.
    double limit;
};

/// The quantizers of all subbands of a part, in lanes.
struct part_quantizer {
    double inverse_scalefactor[32];
    double a[32], b[32], half_steps[32], limit[32];
};

/// How the codes of a triplet, in Layer I of a single sample, make one field: each times its place
/// value, added up. Place values are powers of two where each code has a code word of its own, else 1,
/// steps and steps^2 (ISO/IEC 11172-3, C.1.5.2.7).
struct code_layout {
    std::uint64_t place_value[3];
    std::uint32_t bits; ///< of the field
};

/// The samples of one coded subband and channel.
struct coded_subband {
    const std::int32_t *codes; ///< the first one; each further sample is 32 places on
    code_layout layout;
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

    /// Write the samples of `count` subbands, sample by sample or granule by granule.
    void (*pack_layer1)(const coded_subband *coded, int count, bit_cursor &bits) noexcept;
    void (*pack_layer2)(const coded_subband *coded, int count, bit_cursor &bits) noexcept;
};

const coding_kernels &coding_kernels_of(level which) noexcept;

} // namespace vela
