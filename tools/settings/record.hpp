// From what a user asks for to the encoder's settings record, and what a record means in samples and bits.
#pragma once

#include "vela_enc_mp1a/settings.h"

#include <cstdint>
#include <optional>

namespace tools {

inline constexpr int all_rates[] = {32000, 44100, 48000}; ///< Hz
inline constexpr int highest_bitrate_index = 14;

inline int channels_of(const mpeg_a_settings &settings) noexcept {
    return settings.audio_mode == MPEG_A_MODE_MONO ? 1 : 2;
}

/// Samples per channel.
inline int samples_of_frame(const mpeg_a_settings &settings) noexcept {
    return settings.audio_layer == 1 ? MPEG_A_LAYER1_SAMPLES : MPEG_A_LAYER2_SAMPLES;
}

/// @return kbit/s, 0 for a bitrate that the layer does not have
inline int kbit_of(const mpeg_a_settings &settings) noexcept {
    return mpeg_a_bitrates[settings.audio_layer - 1][settings.audio_bitrate];
}

/// Begin of the stream in 27 MHz ticks.
std::int64_t start_of(const mpeg_a_settings &settings) noexcept;

/// Samples by which sound is late after the analysis and synthesis filterbanks.
inline constexpr int filterbank_delay = 481;

/// Samples by which a decoder's output lags behind the encoder's input: in Layer I the encoder looks two
/// blocks ahead.
constexpr int decoder_delay(int layer) noexcept {
    return layer == 1 ? filterbank_delay + 64 : filterbank_delay;
}

/// What was asked for in place of a preset's values. Empty: the preset's value, or what fits the sound.
struct wishes {
    using wish = std::optional<int>;
    wish preset;   ///< enum mpeg_a_preset
    wish mode;     ///< enum mpeg_a_mode; empty: from the number of channels
    wish layer;    ///< 1 or 2
    wish bitrate;  ///< kbit/s; empty: the preset's, or what fits the mode and layer
    wish model;    ///< enum mpeg_a_model
    wish emphasis; ///< enum mpeg_a_emphasis
    wish crc;      ///< 0 or 1, like all that follow
    wish private_bit;
    wish copyright;
    wish original;

    int preset_code() const noexcept { return preset.value_or(MPEG_A_PRESET_NONE); }
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

/// @param channels  of the input; one makes mono where no mode is wished and the preset takes that
/// @param layer     where none is wished
/// @return a record that may still break a rule. A bitrate that the layer does not have becomes index
/// 0.
mpeg_a_settings settle(const wishes &wished, int channels, int layer);

} // namespace tools
