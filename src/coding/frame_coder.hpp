// Codes one frame: scale factors, bit allocation, quantizing, packing.
#pragma once

#include "analysis/filterbank.hpp"
#include "coding/alloc_tables.hpp"
#include "coding/kernels.hpp"
#include "psy/model.hpp"
#include "psy/tuned_model.hpp"
#include "stream/bit_writer.hpp"
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
    std::uint8_t joint_scalefactor[3][32]; ///< normalise the shared samples; not transmitted
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

/// Sees every frame's decisions before it is written. For programs that carry the core in themselves.
struct frame_observer {
    void (*see)(void *context, const frame_decisions &frame) noexcept = nullptr;
    void *context = nullptr;
};

/// Codes the frames of one stream.
class frame_coder {
  public:
    /// @param header  of the stream; its mode and mode_extension change per frame when joint stereo is
    ///                configured. Must outlive the coder, as must `writer`.
    void init(const coding_kernels &kernels, frame_header &header, bit_writer &writer) noexcept;

    /// Writes one frame of exactly `frame_bits` bits, allocated as the standard describes.
    void encode_frame(int frame_bits, const subband_samples &samples, const smr_table &smr) noexcept;

    /// The same with the tuned allocation.
    void encode_frame(int frame_bits, const subband_samples &samples,
                      const noise_weights &weights) noexcept;

    /// From now on until the next init().
    void observe(const frame_observer &observer) noexcept { observer_ = observer; }

    const coder_config &config() const noexcept { return config_; }

  private:
    void find_scalefactors(const subband_samples &samples, side_info &side,
                           part_samples (&joint)[3]) noexcept;
    void write_frame(const side_info &side, const sample_codes &codes, int stuffing) noexcept;

    const coding_kernels *kernels_;
    frame_header *header_;
    bit_writer *writer_;
    frame_observer observer_;
    coder_config config_;
    // All that passes from frame to frame.
    double level_hint_; ///< see allocate_bits
    double slope_hint_; ///< see allocate_tuned
};

} // namespace vela
