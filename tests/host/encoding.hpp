// Whole encodes in one call.
#pragma once

#include "api/encoder.hpp"
#include "host/fake_output.hpp"
#include "simd/level.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace mp1a_test {

struct stream {
    int layer = 2, mode = MPEG_A_MODE_STEREO, bitrate = 11, crc = 0, rate = 48000;
    int width = 2; ///< bytes per input sample

    int channels() const { return mode == MPEG_A_MODE_MONO ? 1 : 2; }
    int frame_samples() const { return layer == 1 ? 384 : 1152; }
    mpeg_a_settings settings() const;
};

using encoder_pointer = std::unique_ptr<mpeg_a_encoder, void (*)(mpeg_a_encoder *)>;

/// A new encoder without a lookup; not yet initialised.
encoder_pointer make_encoder(const stream &how);

/// Init, PutBytes in one piece, Done.
std::vector<delivered_frame> encode(const stream &how, std::span<const std::uint8_t> pcm,
                                    vela::level level = vela::best_level());

/// The levels that this machine runs.
std::vector<vela::level> levels();

} // namespace mp1a_test
