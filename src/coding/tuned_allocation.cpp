#include "coding/tuned_allocation.hpp"

#include "coding/frame_bits.hpp"
#include "vela_enc_mp1a/settings.h"

namespace vela {

namespace {

/// Frames are looked at by themselves without padding: which of them have it depends on all before.
int unpadded(const coder_config &config, int frame_bits, const frame_header &header) noexcept {
    const int slot_bits = config.layer == 1 ? 32 : 8;
    return frame_bits - header.padding * slot_bits;
}

void set_mode(int joint_bound, const coder_config &config, frame_header &header) noexcept {
    const bool shares = joint_bound < config.sblimit;
    header.mode = shares ? MPEG_A_MODE_JOINT_STEREO : MPEG_A_MODE_STEREO;
    header.mode_extension = static_cast<std::uint8_t>(shares ? joint_bound / 4 - 1 : 0);
}

void store_allocation(const coder_config &config, const tuned_search &search,
                      side_info &side) noexcept {
    for (int sb = 0; sb < config.sblimit; ++sb) {
        for (int ch = 0; ch < config.channels; ++ch) {
            const int row = sb < side.joint_bound ? ch : frame_costs::shared;
            const int quantizer = search.quantizer(row, sb);
            side.allocation[ch][sb] =
                quantizer == 0 ? std::uint8_t{0} : config.table->row(sb).index_of_class[quantizer - 1];
        }
    }
}

} // namespace

void weigh_frame(const weighed_frame &frame, const side_info &side, tuned_frame &found) noexcept {
    const coder_config &config = frame.config;
    for (int ch = 0; ch < config.channels; ++ch) {
        choose_own_scalefactors(frame, ch, side.scalefactor[ch], found.own[ch]);
        found.costs.find_own(frame, ch, found.own[ch]);
    }
    if (config.mode != MPEG_A_MODE_JOINT_STEREO) return;
    choose_shared_scalefactors(frame, found.own, side.joint_index, found.shared);
    found.costs.find_shared(frame, found.own, found.shared);
}

int allocate_tuned(const weighed_frame &frame, int frame_bits, frame_header &header,
                   tuned_frame &weighed, side_info &side, tuned_memory &memory) noexcept {
    const coder_config &config = frame.config;
    const int bits = unpadded(config, frame_bits, header);
    tuned_search search(frame, weighed.costs);
    const frame_by_itself now = look_by_itself(config, weighed.costs, search, bits, memory);
    favour_the_past(frame, bits, memory, weighed.costs);
    side.joint_bound = config.sblimit;
    if (config.mode == MPEG_A_MODE_JOINT_STEREO) {
        side.joint_bound = choose_bound(config, now, memory);
        set_mode(side.joint_bound, config, header);
    }
    remember(now, memory);
    double slope = memory.slope_hint;
    search.take_common_slope(side.joint_bound, frame_bits - fixed_bits(config, side.joint_bound),
                             slope);
    search.take_single_steps();
    store_allocation(config, search, side);
    return refine_scalefactors(frame, weighed.own, weighed.shared, search.available(), slope, side);
}

void pass_tuned(const weighed_frame &frame, int frame_bits, const frame_header &header,
                const tuned_frame &weighed, tuned_memory &memory) noexcept {
    const int bits = unpadded(frame.config, frame_bits, header);
    tuned_search search(frame, weighed.costs);
    remember(look_by_itself(frame.config, weighed.costs, search, bits, memory), memory);
}

} // namespace vela
