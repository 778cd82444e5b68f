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

/// Quantizers by their numbers of steps: 3, 5, 7, 9, then 2^n - 1 for n = 4 .. 16.
inline constexpr int quantizer_count = 17;
/// Those whose noise depends on the samples so much that it is computed exactly.
inline constexpr int coarse_count = 4;
inline constexpr int coarse_steps[coarse_count] = {3, 5, 7, 9};

/// Scale factors of one part of a channel.
struct part_scalefactors {
    double value[32], inverse[32];
};

/// Energies of what a part of a channel loses, per subband.
struct part_noise {
    double unquantized[32]; ///< with no bits: of the samples themselves
    double coarse[coarse_count][32];
    // Finer quantizers: residue + scale_square * 4 / steps^2, but not more than `most`.
    double residue[32], scale_square[32], most[32];
};

/// The same, each part's noise times its weight, added up over parts; over channels where they share.
struct noise_costs {
    double unquantized[32];
    double quantized[quantizer_count][32];
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

    /// Sums of a part's products, per subband.
    void (*sum_products)(const part_samples &a, const part_samples &b, double (&sum)[32]) noexcept;

    /// Noise of a subband with samples of its own, and of one channel of a shared one.
    void (*own_noise)(const part_samples &samples, const part_scalefactors &scalefactors,
                      part_noise &noise) noexcept;
    void (*shared_noise)(const part_samples &samples, const part_scalefactors &scalefactors,
                         const part_samples &shared, const part_scalefactors &shared_scalefactors,
                         part_noise &noise) noexcept;
    void (*add_noise_costs)(const part_noise &noise, const double (&weight)[32],
                            noise_costs &costs) noexcept;

    /// Write the samples of `count` subbands, sample by sample or granule by granule.
    void (*pack_layer1)(const coded_subband *coded, int count, bit_cursor &bits) noexcept;
    void (*pack_layer2)(const coded_subband *coded, int count, bit_cursor &bits) noexcept;
};

const coding_kernels &coding_kernels_of(level which) noexcept;

} // namespace vela
