#include "coding/quantize.hpp"

#include "coding/scalefactor_table.hpp"

namespace vela {

namespace {

/// The lanes of subbands first .. end - 1 with these allocations and scale
/// factors.
void set_lanes(const coder_config &config, const std::uint8_t (&allocation)[32],
               const std::uint8_t (&scalefactor)[32], int first, int end, part_quantizer &q) noexcept {
    for (int sb = first; sb < end; ++sb) {
        const unsigned step = sb < config.sblimit ? allocation[sb] : 0;
        q.inverse_scalefactor[sb] = step == 0 ? 0.0 : inverse_scalefactor[scalefactor[sb]];
        q.a[sb] = q.b[sb] = q.half_steps[sb] = q.limit[sb] = 0.0;
        if (step == 0) continue;
        const int steps = config.table->row(sb).steps[step];
        q.limit[sb] = steps - 1;
        if (config.layer == 1) {
            const layer1_quantizer &quantizer = layer1_quantizers[step - 1];
            q.a[sb] = quantizer.a;
            q.b[sb] = quantizer.b;
            q.half_steps[sb] = 1 << step;
        } else {
            q.half_steps[sb] = steps / 2.0;
        }
    }
}

} // namespace

void quantize_samples(const coding_kernels &kernels, const coder_config &config, const side_info &side,
                      const subband_samples &samples, const part_samples *joint,
                      sample_codes &codes) noexcept {
    const auto quantize = config.layer == 1 ? kernels.quantize_layer1 : kernels.quantize_layer2;
    // Whole groups of lanes; the bounds 4, 8, 12 and 16 are such already.
    const int end = (config.sblimit + 3) / 4 * 4;
    const int bound = side.joint_bound < config.sblimit ? side.joint_bound : end;
    part_quantizer quantizer;
    for (int part = 0; part < config.parts(); ++part) {
        for (int ch = 0; ch < config.channels; ++ch) {
            set_lanes(config, side.allocation[ch], side.scalefactor[ch][part], 0, bound, quantizer);
            quantize(samples[ch][part], quantizer, 0, bound, codes[ch][part]);
        }
        if (bound == end) continue;
        set_lanes(config, side.allocation[0], side.joint_scalefactor[part], bound, end, quantizer);
        quantize(joint[part], quantizer, bound, end, codes[0][part]);
    }
}

} // namespace vela
