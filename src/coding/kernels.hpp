// The coding room's kernels, compiled once per level.
#pragma once

#include "simd/level.hpp"
#include "simd/table.hpp"
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

/// Scale factors of one part of a channel, and their indexes as numbers that fit into lanes.
struct part_scalefactors {
    double value[32], inverse[32], index[32];
};

/// Weights, or energies, of the parts of a channel.
using part_values = double[3][32];

/// How a channel's scale factors are sent: scfsi and the index of each part.
struct sent_scalefactors {
    double scfsi[32];
    part_values index;
};

/// What a channel may send if it is one, two or three scale factors; with one part, only the first index of one.
struct scalefactor_offers {
    part_values index[3];
    double scfsi_of_two[32]; ///< 1 or 3
    /// Weighted noise that scale factors take away, for each of them: a second one, two more at once, a third one.
    double second[32], both[32], third[32];
};

/// Scale factors that are tried, from some steps above a given one downwards: with the quantizer of three
/// steps, and with finer ones.
inline constexpr int ternary_scales = 6, ternary_above = 2;
inline constexpr int refined_scales = 4, refined_above = 1;

/// What each part of a channel has in common with the samples z that the channels share: with a scale
/// factor s its noise is energy - 2 s product + s^2 square.
struct shared_fit {
    part_values energy, product, square;
};

/// The quantizers that subbands may have, and their bits.
struct quantizer_set {
    table<double, quantizer_count> sample_bits; ///< of the samples of a subband
    /// Of four subbands those that any of them has, in order.
    struct group {
        int count;
        table<std::uint8_t, quantizer_count> quantizers;
        table<std::uint8_t, quantizer_count + 1> before; ///< how many of them lie before each
    };
    table<group, 8> groups;
    table<group, 8> pairs; ///< of eight subbands, those of a group and of the next one
    /// A cost above every other one for those that a subband does not have, else 0.
    table<table<double, 32>, quantizer_count> barred;
};

/// What the quantizers of 32 subbands cost in noise, from 0 to 1e200, and in bits. Noise is weighted and
/// added up over parts, over channels where they share.
struct unit_costs {
    double unquantized[32]; ///< with no bits: of the samples themselves
    double quantized[quantizer_count][32];
    /// Bits that open a subband with three steps or with more, beside those of samples.
    double ternary_opening[32], opening[32];
    double first_slope[32]; ///< below which there are bits
    const quantizer_set *set;
};

/// A quantizer for each subband, from 1 on or 0 for no bits, and what it costs.
struct unit_choices {
    double quantizer[32], bits[32], cost[32];
};

/// Bits of choices, and how many subbands have any.
struct reached {
    int bits, subbands;
};

/// The best step from a choice: cost taken away by each bit, 0 when there is no such step.
struct unit_steps {
    double slope[32], quantizer[32];
};

/// The parts of a frame whose subbands the channels share: samples, weights and energies of the channels,
/// and the indexes of the scale factors with which both decode what they share.
struct shared_parts {
    const part_samples *samples[2];
    const part_values *weight[2], *energy[2], *index[2];
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

    /// Sums of a part's products, of subbands first .. end - 1.
    void (*sum_products)(const part_samples &a, const part_samples &b, int first, int end,
                         double (&sum)[32]) noexcept;

    /// Choose the scale factors that a channel sends, by noise and bits: with the quantizer of three steps,
    /// by its exact noise, and with finer ones, by a uniform error. Of one part, only its index is written.
    /// @param energy  of the parts' samples
    /// @param cost    weighted noise
    void (*choose_ternary)(const part_samples *samples, int parts, const part_scalefactors (&peaks)[3],
                           const part_values &weight, int end, sent_scalefactors &sent,
                           double (&cost)[32], part_values &energy) noexcept;
    /// Three parts only; of one, finer quantizers take the peaks' scale factor.
    void (*choose_finer)(const part_scalefactors (&peaks)[3], const part_values &weight, int end,
                         sent_scalefactors &sent, part_scalefactors (&used)[3]) noexcept;

    /// Finds the scale factors with the least exact noise, of quantizers of more than three steps; offers of
    /// other subbands become anything.
    /// @param half  of the steps
    void (*refine)(const part_samples *samples, int parts, const part_scalefactors (&peaks)[3],
                   const part_values &weight, const part_values &energy, const double (&half)[32],
                   int first, int end, scalefactor_offers &offers) noexcept;

    /// Chooses the scale factors of a channel's shared subbands, nearest to the least squares. Of one part,
    /// only its index is written.
    /// @param quantizer  noise of a part for a scale factor of 1
    void (*fit)(const shared_fit &fit, int parts, const part_values &weight, double quantizer,
                int first, int end, sent_scalefactors &sent) noexcept;
    /// The same without the quantizer's noise, for each number of scale factors.
    void (*fit_again)(const shared_fit &fit, int parts, const part_values &weight, int first, int end,
                      scalefactor_offers &offers) noexcept;

    /// What both channels share with the least noise.
    void (*mix)(const shared_parts &frame, int parts, int first, int end, part_samples *mixed) noexcept;
    /// What is decoded of that before a channel's scale factor.
    /// @param half  of the steps
    void (*decode)(const part_samples &mixed, const double (&half)[32], int first, int end,
                   part_samples &decoded) noexcept;

    /// Find what the quantizers cost in noise, and first_slope, of subbands whose openings are given: of a
    /// channel's own subbands up to end - 1,
    /// @param energy   of the parts' samples
    /// @param ternary  noise of three steps
    void (*own_costs)(const part_samples *samples, int parts,
                      const part_scalefactors (&scalefactors)[3], const part_values &weight,
                      const part_values &energy, const double (&ternary)[32], int end,
                      unit_costs &costs) noexcept;
    /// and of both channels of shared ones.
    void (*shared_costs)(const shared_parts &frame, const part_samples *mixed, int parts, int first,
                         int end, unit_costs &costs) noexcept;

    // Of the subbands first .. end - 1, multiples of 4, of one or two rows of costs:

    /// The quantizers up to which every bit takes away more than `slope` of the cost, if there are to be bits at
    /// all. Finer quantizers want more bits.
    /// @param coarse  choices for a greater slope, or null
    /// @param fine    choices for a lesser slope, or null
    void (*climb)(const unit_costs *costs, int rows, double slope, int first, int end,
                  const unit_choices *coarse, const unit_choices *fine, unit_choices *choices) noexcept;
    /// Those, or no bits where not even they take away more than that of the cost.
    /// @param climbed  choices of climb() for the slope
    reached (*reach)(const unit_costs *costs, const unit_choices *climbed, int rows, double slope,
                     int first, int end, unit_choices *choices) noexcept;
    /// Makes no bits cost so much that the slopes below which there are bits become first_slope times a
    /// factor above 0.
    void (*favour)(unit_costs &costs, const double (&factor)[32], int first, int end) noexcept;
    /// Of the steps that take away cost and want no more bits than that, those with the greatest slope,
    /// the shortest ones of equals.
    void (*best_steps)(const unit_costs &costs, const unit_choices &from, double affordable, int first,
                       int end, unit_steps &steps) noexcept;

    /// Write the samples of `count` subbands, sample by sample or granule by granule.
    void (*pack_layer1)(const coded_subband *coded, int count, bit_cursor &bits) noexcept;
    void (*pack_layer2)(const coded_subband *coded, int count, bit_cursor &bits) noexcept;
};

const coding_kernels &coding_kernels_of(level which) noexcept;

} // namespace vela
