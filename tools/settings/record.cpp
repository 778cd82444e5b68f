#include "settings/record.hpp"

#include "settings/rules.hpp"
#include "vela_enc_mp1a/encoder.h"

namespace tools {
namespace {

int index_of(mpeg_a_settings settings, int kbit) noexcept {
    for (settings.audio_bitrate = highest_bitrate_index; settings.audio_bitrate > 0;
         --settings.audio_bitrate)
        if (kbit_of(settings) == kbit) break;
    return settings.audio_bitrate;
}

/// A preset's bitrate is meant for two channels of Layer II. One channel gets half of it, Layer I what
/// it needs for the same quality; then the next rate that the preset allows.
int default_bitrate(mpeg_a_settings settings, int preset) {
    const bool mono = channels_of(settings) == 1;
    if (!mono && settings.audio_layer == 2) return settings.audio_bitrate;
    const int kbit = settings.audio_layer == 1 ? (mono ? 192 : 384) : kbit_of(settings) / 2;
    const int preferred = index_of(settings, kbit);
    for (settings.audio_bitrate = preferred; settings.audio_bitrate <= highest_bitrate_index;
         ++settings.audio_bitrate)
        if (preset_takes(settings, preset)) return settings.audio_bitrate;
    return preferred;
}

} // namespace

std::int64_t start_of(const mpeg_a_settings &settings) noexcept {
    if (settings.pts_units <= 0) return settings.pts_offset;
    return static_cast<std::int64_t>(static_cast<double>(settings.pts_offset) * 27e6
                                     / settings.pts_units);
}

mpeg_a_settings settle(const wishes &wished, int channels, int layer) {
    mpeg_a_settings settings{};
    mpegOutAudioDefaults(&settings, wished.preset_code());
    if (channels == 1 && takes_mono(wished.preset_code())) settings.audio_mode = MPEG_A_MODE_MONO;
    settings.audio_mode = wished.mode.value_or(settings.audio_mode);
    settings.audio_layer = wished.layer.value_or(layer);
    for (const plain_field &row : plain_fields)
        settings.*row.field = (wished.*row.wish).value_or(settings.*row.field);
    settings.audio_bitrate = wished.bitrate ? index_of(settings, *wished.bitrate)
                                            : default_bitrate(settings, wished.preset_code());
    return settings;
}

} // namespace tools
