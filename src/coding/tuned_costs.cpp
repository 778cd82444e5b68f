#include "coding/tuned_costs.hpp"

#include "coding/frame_bits.hpp"
#include "coding/scalefactor_table.hpp"
#include "psy/tuned_parameters.hpp"
#include "vela_enc_mp1a/settings.h"

#include <algorithm>

namespace vela {

namespace {

/// Bits of scale factors and their selection, of a subband with bits.
double opening_bits(const coder_config &config, double scfsi) noexcept {
    return config.layer == 1 ? 6 : 2 + 6 * scalefactors_per_scfsi[static_cast<int>(scfsi)];
}

} // namespace

int frame_costs::count(const coder_config &config) noexcept {
    return config.mode == MPEG_A_MODE_JOINT_STEREO ? shared + 1 : config.channels;
}

void frame_costs::find_own(const weighed_frame &frame, int ch, const own_scalefactors &own) noexcept {
    const coder_config &config = frame.config;
    const int end = config.lane_end();
    unit_costs &costs = rows[ch];
    static_cast<noise_costs &>(costs) = {};
    costs.set = &config.table->set;
    for (int part = 0; part < config.parts(); ++part) {
        part_noise noise;
        frame.kernels.own_noise(frame.samples[ch][part], own.used[part], 0, end, noise);
        frame.kernels.add_noise_costs(noise, own.weight[part], 0, end, costs);
    }
    for (int sb = 0; sb < end; ++sb) {
        // Refined already.
        costs.quantized[0][sb] = own.ternary_cost[sb] / tuned::left_by_refining;
        costs.ternary_opening[sb] = opening_bits(config, own.ternary.scfsi[sb]);
        costs.opening[sb] = opening_bits(config, own.finer.scfsi[sb]);
    }
    frame.kernels.finish_costs(0, end, costs);
}

void frame_costs::find_shared(const weighed_frame &frame, const sent_scalefactors (&chosen)[2],
                              const part_scalefactors (&normal)[3]) noexcept {
    const coder_config &config = frame.config;
    const int first = joint_bounds[0], end = config.lane_end();
    unit_costs &costs = rows[shared];
    static_cast<noise_costs &>(costs) = {};
    costs.set = &config.table->set;
    for (int part = 0; part < config.parts(); ++part) {
        part_scalefactors scale[2];
        for (int ch = 0; ch < 2; ++ch) {
            for (int sb = first; sb < end; ++sb)
                scale[ch].value[sb] = scalefactor_table[static_cast<int>(chosen[ch].index[part][sb])];
        }
        part_noise noise[2];
        frame.kernels.shared_noise(frame.samples[0][part], frame.samples[1][part], scale,
                                   frame.joint[part], normal[part], first, end, noise);
        for (int ch = 0; ch < 2; ++ch)
            frame.kernels.add_noise_costs(noise[ch], frame.weights[ch][part], first, end, costs);
    }
    for (int sb = first; sb < end; ++sb) {
        costs.opening[sb] =
            opening_bits(config, chosen[0].scfsi[sb]) + opening_bits(config, chosen[1].scfsi[sb]);
        costs.ternary_opening[sb] = costs.opening[sb];
    }
    frame.kernels.finish_costs(first, end, costs);
}

frame_rows::frame_rows(const coder_config &config, int joint_bound) noexcept : count(0) {
    const int end = config.lane_end(), own_end = joint_bound < config.sblimit ? joint_bound : end;
    ranges[count++] = {0, config.channels, 0, own_end};
    if (own_end < end) ranges[count++] = {frame_costs::shared, 1, own_end, end};
}

} // namespace vela
