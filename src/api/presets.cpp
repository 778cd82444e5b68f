#include "api/presets.hpp"

namespace vela {

namespace {

/// What a preset's defaults have in place of the base defaults.
struct preset_difference {
    std::int32_t preset;
    std::int32_t audio_bitrate;
    std::int32_t error_protection;
    std::int32_t sample_rate;
};

/// Layer II at 224 kbit/s without CRC, 44100 Hz.
constexpr preset_difference base{MPEG_A_PRESET_NONE, 11, 0, 44100};

constexpr preset_difference differences[] = {
    {MPEG_A_PRESET_SVCD, 11, 1, 44100},
    {MPEG_A_PRESET_DVD, 11, 1, 48000},
    {13, 11, 1, 48000},
    {MPEG_A_PRESET_DVD_DUAL, 11, 1, 48000},
    {15, 11, 1, 48000},
    {MPEG_A_PRESET_DVB, 11, 1, 48000},
    {MPEG_A_PRESET_MICROMV, 12, 1, 48000},
    {MPEG_A_PRESET_DVHS, 11, 1, 48000},
    {MPEG_A_PRESET_HDV, 14, 1, 48000},
    {19, 14, 1, 48000},
};

constexpr const preset_difference &difference_of(std::int32_t preset) noexcept {
    for (const preset_difference &row : differences) {
        if (row.preset == preset) return row;
    }
    return base;
}

} // namespace

void preset_defaults(mpeg_a_settings &settings, std::int32_t preset,
                     std::int32_t *sample_rate) noexcept {
    const preset_difference &row = difference_of(preset);
    settings.audio_mode = MPEG_A_MODE_STEREO;
    settings.audio_layer = 2;
    settings.psych_model = 2;
    settings.audio_bitrate = row.audio_bitrate;
    settings.emphasis = MPEG_A_EMPHASIS_NONE;
    settings.extension = 0;
    settings.error_protection = row.error_protection;
    settings.copyright = 0;
    settings.original = 0;
    settings.pts_offset = 0;
    settings.pts_units = 0;
    if (sample_rate != nullptr) *sample_rate = row.sample_rate;
}

} // namespace vela
