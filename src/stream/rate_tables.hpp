// Bitrates and sampling frequencies behind the header's indexes.
#pragma once

#include <array>
#include <cstdint>

namespace vela {

/// Samples per channel in a frame (ISO/IEC 11172-3, 2.4.2.1).
inline constexpr int samples_per_frame(int layer) noexcept {
    return layer == 1 ? 384 : 1152;
}

/// The longest frame: Layer II, 384 kbit/s, 32 kHz.
inline constexpr int max_frame_bytes = 1728;

/// Bitrate in kbit/s by layer - 1 and bitrate_index (ISO/IEC 11172-3, 2.4.2.3); index 0 is free format.
inline constexpr std::array<std::array<std::int16_t, 15>, 2> bitrate_table{{
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
}};

/// Bitrate in kbit/s; 0 when the layer or the index lies outside the table.
inline constexpr int bitrate_kbps(int layer, int bitrate_index) noexcept {
    if (layer < 1 || layer > 2 || bitrate_index < 0 || bitrate_index > 14) return 0;
    return bitrate_table[static_cast<unsigned>(layer - 1)][static_cast<unsigned>(bitrate_index)];
}

/// kHz by the header's sampling_frequency index.
inline constexpr std::array<double, 3> sampling_frequency_khz{44.1, 48.0, 32.0};

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
