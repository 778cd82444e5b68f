// Bitrates and sampling frequencies behind the header's indexes.
#pragma once

#include "simd/table.hpp"
#include "vela_enc_mp1a/settings.h"

#include <cstdint>

namespace vela {

/// Samples per channel in a frame.
inline constexpr int samples_per_frame(int layer) noexcept {
    return layer == 1 ? MPEG_A_LAYER1_SAMPLES : MPEG_A_LAYER2_SAMPLES;
}

/// The third row of ISO/IEC 11172-3, 2.4.2.3: what the index of a record stands for that asks for Layer
/// III, which cannot be encoded.
inline constexpr table<std::int16_t, 15> layer3_bitrates{0,   32,  40,  48,  56,  64,  80, 96,
                                                         112, 128, 160, 192, 224, 256, 320};

/// Bitrate in kbit/s; 0 when the layer, 1..3, or the index lies outside the table.
inline constexpr int bitrate_kbps(int layer, int bitrate_index) noexcept {
    if (layer < 1 || layer > 3 || bitrate_index < 0 || bitrate_index > 14) return 0;
    return layer == 3 ? layer3_bitrates[bitrate_index] : mpeg_a_bitrates[layer - 1][bitrate_index];
}

/// kHz by the header's sampling_frequency index.
inline constexpr table<double, 3> sampling_frequency_khz{44.1, 48.0, 32.0};

/// The header's sampling_frequency index of a rate in Hz; -1 when MPEG-1 has no such rate.
inline constexpr int sampling_frequency_index(int sample_rate) noexcept {
    switch (sample_rate) {
    case 44100:
        return 0;
    case 48000:
        return 1;
    case 32000:
        return 2;
    default:
        return -1;
    }
}

} // namespace vela
