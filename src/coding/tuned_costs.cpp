#include "coding/tuned_costs.hpp"

#include "coding/frame_bits.hpp"
#include "vela_enc_mp1a/settings.h"

namespace vela {

namespace {

/// Bits of scale factors and their selection, of a subband with bits.
double opening_bits(const coder_config &config, const sent_scalefactors &sent, int sb) noexcept {
    if (config.layer == 1) return scalefactor_bits;
    return scfsi_bits + scalefactor_bits * scalefactors_per_scfsi[static_cast<int>(sent.scfsi[sb])];
}

} // namespace

int frame_costs::count(const coder_config &config) noexcept {
    return config.mode == MPEG_A_MODE_JOINT_STEREO ? shared + 1 : config.channels;
}

void frame_costs::find_own(const weighed_frame &frame, int ch, const own_scalefactors &own) noexcept {
    const coder_config &config = frame.config;
    const int end = config.lane_end();
    unit_costs &costs = rows[ch];
    costs.set = &config.table->set;
    for (int sb = 0; sb < end; ++sb) {
        costs.ternary_opening[sb] = opening_bits(config, own.ternary, sb);
        costs.opening[sb] = opening_bits(config, own.finer, sb);
    }
    frame.kernels.own_costs(frame.samples[ch], config.parts(), own.used, own.weight, own.energy,
                            own.ternary_cost, end, costs);
}

void frame_costs::find_shared(const weighed_frame &frame, const own_scalefactors (&own)[2],
                              const sent_scalefactors (&chosen)[2]) noexcept {
    const coder_config &config = frame.config;
    const int first = joint_bounds[0], end = config.lane_end();
    unit_costs &costs = rows[shared];
    costs.set = &config.table->set;
    for (int sb = first; sb < end; ++sb) {
        costs.opening[sb] = opening_bits(config, chosen[0], sb) + opening_bits(config, chosen[1], sb);
        costs.ternary_opening[sb] = costs.opening[sb];
    }
    frame.kernels.shared_costs(mix(frame, own, chosen[0].index, chosen[1].index, first), frame.joint,
                               config.parts(), first, end, costs);
}

frame_rows::frame_rows(const coder_config &config, int joint_bound) noexcept : count(0) {
    const int end = config.lane_end(), own_end = joint_bound < config.sblimit ? joint_bound : end;
    ranges[count++] = {0, config.channels, 0, own_end};
    if (own_end < end) ranges[count++] = {frame_costs::shared, 1, own_end, end};
}

} // namespace vela
