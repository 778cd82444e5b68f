#include "coding/quantize.hpp"

#include "coding/scalefactor_table.hpp"

namespace vela {

namespace {

void set_quantizers(const coder_config &config, const std::uint8_t (&allocation)[32], int first,
                    int end, part_quantizer &q) noexcept {
    for (int sb = first; sb < end; ++sb) {
        static constexpr quantizer no_bits{};
        const quantizer &chosen =
            sb < config.sblimit ? config.table->row(sb).quantizers[allocation[sb]] : no_bits;
        q.a[sb] = chosen.a;
        q.b[sb] = chosen.b;
        q.half_steps[sb] = chosen.half_steps;
        q.limit[sb] = chosen.limit;
    }
}

void set_scalefactors(const std::uint8_t (&scalefactor)[32], int first, int end,
                      part_quantizer &q) noexcept {
    for (int sb = first; sb < end; ++sb)
        q.inverse_scalefactor[sb] = inverse_scalefactor[scalefactor[sb]];
}

} // namespace

void quantize_samples(const coding_kernels &kernels, const coder_config &config, const side_info &side,
                      const subband_samples &samples, const part_samples *joint,
                      sample_codes &codes) noexcept {
    const auto quantize = config.layer == 1 ? kernels.quantize_layer1 : kernels.quantize_layer2;
    // Whole groups of lanes; the bounds 4, 8, 12 and 16 are such already.
    const int end = (config.sblimit + 3) / 4 * 4;
    const int bound = side.joint_bound < config.sblimit ? side.joint_bound : end;
    part_quantizer q;
    for (int ch = 0; ch < config.channels; ++ch) {
        set_quantizers(config, side.allocation[ch], 0, bound, q);
        for (int part = 0; part < config.parts(); ++part) {
            set_scalefactors(side.scalefactor[ch][part], 0, bound, q);
            quantize(samples[ch][part], q, 0, bound, codes[ch][part]);
        }
    }
    if (bound == end) return;
    set_quantizers(config, side.allocation[0], bound, end, q);
    for (int part = 0; part < config.parts(); ++part) {
        set_scalefactors(side.joint_index[part], bound, end, q);
        quantize(joint[part], q, bound, end, codes[0][part]);
    }
}

} // namespace vela
