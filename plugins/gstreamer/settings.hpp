/// What the element's properties ask for, and the encoder's settings that follow from it. Nothing here
/// knows of GStreamer.
#pragma once

#include "vela_enc_mp1a/settings.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velamp2 {

/// A preset, and what was set by hand in place of its values. Empty: the preset's value, or what fits
/// the stream.
struct wishes {
    using wish = std::optional<std::int32_t>;
    wish preset;   ///< enum mpeg_a_preset
    wish mode;     ///< enum mpeg_a_mode; empty: from the number of channels
    wish layer;    ///< 1 or 2; empty: what downstream takes
    wish bitrate;  ///< kbit/s; empty: the preset's, or what fits the mode and layer
    wish model;    ///< enum mpeg_a_model
    wish emphasis; ///< enum mpeg_a_emphasis
    wish crc;      ///< 0 or 1, like all that follow
    wish private_bit;
    wish copyright;
    wish original;

    std::int32_t preset_code() const noexcept { return preset.value_or(MPEG_A_PRESET_NONE); }
};

/// Wishes that are a field of the record as they stand.
struct plain_field {
    wishes::wish wishes::*wish;
    std::int32_t mpeg_a_settings::*field;
};
inline constexpr plain_field plain_fields[] = {
    {&wishes::model, &mpeg_a_settings::audio_model},
    {&wishes::emphasis, &mpeg_a_settings::emphasis},
    {&wishes::crc, &mpeg_a_settings::error_protection},
    {&wishes::private_bit, &mpeg_a_settings::extension},
    {&wishes::copyright, &mpeg_a_settings::copyright},
    {&wishes::original, &mpeg_a_settings::original},
};

inline constexpr int all_rates[] = {32000, 44100, 48000};

inline int channels_of(const mpeg_a_settings &settings) noexcept {
    return settings.audio_mode == MPEG_A_MODE_MONO ? 1 : 2;
}

inline int samples_of_frame(const mpeg_a_settings &settings) noexcept {
    return settings.audio_layer == 1 ? MPEG_A_LAYER1_SAMPLES : MPEG_A_LAYER2_SAMPLES;
}

/// By how many samples a decoder's output lags behind the encoder's input; docs/host-guide.md, Delay.
inline int delay_of(const mpeg_a_settings &settings) noexcept {
    return settings.audio_layer == 1 ? 545 : 481;
}

/// @return kbit/s, 0 for a bitrate that the layer does not have
inline int kbit_of(const mpeg_a_settings &settings) noexcept {
    return mpeg_a_bitrates[settings.audio_layer - 1][settings.audio_bitrate];
}

/// @param channels  of the input, 1 or 2; decides the mode where none is wished
/// @param layer     where none is wished
/// @return a record that may still break a rule. A bitrate that the layer does not have becomes index
/// 0.
mpeg_a_settings settle(const wishes &wished, int channels, int layer);

/// Rates in Hz at which a stream of the preset's own settings conforms to its format.
std::vector<int> rates_of_preset(std::int32_t preset);

struct verdict {
    bool usable;          ///< whether an encoder can be made
    std::string messages; ///< every rule that is violated, a line each; empty without one
};

/// Checks the settings against the encoder's rules, the preset's and the standard's.
verdict judge(const mpeg_a_settings &settings, const wishes &wished, int rate);

} // namespace velamp2
