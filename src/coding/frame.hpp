// One frame's data on the way from samples to bits, and what the stream fixes for all of them.
#pragma once

#include "analysis/filterbank.hpp"
#include "coding/alloc_tables.hpp"
#include "psy/results.hpp"
#include "vela_enc_mp1a/bufstream.h"

#include <cstdint>

namespace vela {

/// What the stream's settings fix for every frame.
struct coder_config {
    int layer;
    int mode; ///< as configured, see enum mpeg_a_mode
    bool error_protection;
    int channels;
    int sblimit; ///< coded subbands: 32 in Layer I; 8, 12, 27 or 30 in Layer II
    const alloc_table *table;

    int parts() const noexcept { return layer == 1 ? 1 : 3; }
    /// sblimit in whole groups of lanes.
    int lane_end() const noexcept { return (sblimit + 3) / 4 * 4; }
};

coder_config make_coder_config(const frame_header &header) noexcept;

/// Scale factors of one frame: [channel][subband], [channel][part][subband].
struct channel_scalefactors {
    std::uint8_t scfsi[2][32];
    std::uint8_t scalefactor[2][3][32];
};

/// Side information of one frame.
struct side_info : channel_scalefactors {
    std::uint8_t allocation[2][32];
    std::uint8_t
        joint_index[3][32]; ///< of the scale factors that normalise the shared samples; not transmitted
    /// First subband whose samples both channels share; sblimit when none are.
    int joint_bound;

    /// Channels that have an allocation and samples of their own in a subband.
    int coded_channels(int channels, int sb) const noexcept { return sb < joint_bound ? channels : 1; }
};

/// What decided a frame; valid during the call that passes it on.
struct frame_decisions {
    const coder_config &config;
    const frame_header &header;
    const subband_samples &samples;
    const smr_table &smr;
    const side_info &side;
    int frame_bits, stuffing;
};

/// Sees the decisions of every frame of the standard's model before it is written; frames of the tuned one
/// are not shown. For programs that carry the core in themselves.
struct frame_observer {
    void (*see)(void *context, const frame_decisions &frame) noexcept = nullptr;
    void *context = nullptr;
};

} // namespace vela
