#include "velaenc/stream_settings.hpp"

#include "common/failure.hpp"
#include "common/preset_rules.hpp"
#include "vela_enc_mp1a/encoder.h"

#include <array>

namespace tools {
namespace {

constexpr int lowest_index = 1, highest_index = 14;

/// ISO/IEC 11172-3, 2.4.2.3: Layer II has the low rates for one channel only and the high ones for two only.
bool standard_allows(const mpeg_a_settings &settings) noexcept {
    if (settings.audio_layer == 1) return true;
    const int kbit = kbit_of(settings);
    if (settings.audio_mode == MPEG_A_MODE_MONO) return kbit <= 192;
    return kbit == 64 || kbit >= 96;
}

int check_silently(const mpeg_a_settings &settings, int preset, int rate, int options) noexcept {
    return mpegOutAudioChkSettings(nullptr, &settings, preset, rate, options, 0);
}

bool is_usable(const mpeg_a_settings &settings) noexcept {
    return check_silently(settings, MPEG_A_PRESET_NONE, 48000, MPEG_A_CHECK_GENERIC_ONLY) == 0;
}

/// Whether the preset would take this mode, layer and bitrate, everything else being its own.
bool preset_takes(const mpeg_a_settings &settings, int preset) noexcept {
    mpeg_a_settings pure{};
    mpegOutAudioDefaults(&pure, preset);
    pure.audio_mode = settings.audio_mode;
    pure.audio_layer = settings.audio_layer;
    pure.audio_bitrate = settings.audio_bitrate;
    for (const int rate : {48000, 44100, 32000})
        if (check_silently(pure, preset, rate, 0) == 0) return true;
    return false;
}

/// Whether the preset has a rate that the standard has for one channel, too: players of the others take
/// two channels only.
bool takes_mono(const mpeg_a_settings &settings, int preset) noexcept {
    mpeg_a_settings mono = settings;
    mono.audio_mode = MPEG_A_MODE_MONO;
    for (int index = lowest_index; index <= highest_index; ++index) {
        mono.audio_bitrate = index;
        if (standard_allows(mono) && preset_takes(mono, preset)) return true;
    }
    return false;
}

std::string rates_of(mpeg_a_settings settings) {
    std::string list;
    for (int index = lowest_index; index <= highest_index; ++index) {
        settings.audio_bitrate = index;
        if (is_usable(settings)) list += (list.empty() ? "" : ", ") + std::to_string(kbit_of(settings));
    }
    return list + " kbit/s";
}

constexpr std::array<const char *, 4> mode_names{"stereo", "joint stereo", "dual channel", "mono"};

std::string mode_name(const mpeg_a_settings &settings) {
    return mode_names.at(static_cast<std::size_t>(settings.audio_mode));
}

std::string layer_and_mode(const mpeg_a_settings &settings) {
    return (settings.audio_layer == 1 ? "Layer I " : "Layer II ") + mode_name(settings);
}

void choose_bitrate(mpeg_a_settings &settings, int kbit) {
    for (int index = lowest_index; index <= highest_index; ++index) {
        settings.audio_bitrate = index;
        if (kbit_of(settings) == kbit) return;
    }
    throw failure(exit_code::rules, "--bitrate " + std::to_string(kbit) + " does not exist: "
                                        + layer_and_mode(settings) + " has " + rates_of(settings));
}

/// A preset's bitrate is meant for two channels of Layer II. One channel gets half of it, Layer I what
/// it needs for the same quality; then the next rate that the preset allows.
void choose_default_bitrate(mpeg_a_settings &settings, int preset, std::vector<std::string> &notes) {
    const bool mono = settings.audio_mode == MPEG_A_MODE_MONO;
    if (!mono && settings.audio_layer == 2) return;
    choose_bitrate(settings, settings.audio_layer == 1 ? (mono ? 192 : 384) : kbit_of(settings) / 2);
    const int preferred = settings.audio_bitrate;
    while (settings.audio_bitrate <= highest_index && !preset_takes(settings, preset))
        ++settings.audio_bitrate;
    if (settings.audio_bitrate > highest_index) settings.audio_bitrate = preferred;
    notes.push_back(layer_and_mode(settings)
                    + " without --bitrate: " + std::to_string(kbit_of(settings)) + " kbit/s");
}

template <class Field, class Value>
void replace(Field &field, const std::optional<Value> &value) {
    if (value) field = *value;
}

void apply(const options &wanted, mpeg_a_settings &settings) {
    replace(settings.audio_layer, wanted.layer);
    replace(settings.audio_mode, wanted.mode);
    replace(settings.error_protection, wanted.crc);
    replace(settings.audio_model, wanted.model);
    replace(settings.emphasis, wanted.emphasis);
    replace(settings.extension, wanted.private_bit);
    replace(settings.copyright, wanted.copyright);
    replace(settings.original, wanted.original);
    // The record is packed: no reference may be bound to this field.
    if (wanted.pts_offset) settings.pts_offset = *wanted.pts_offset;
    replace(settings.pts_units, wanted.pts_units);
}

void note_channels(const options &wanted, const mpeg_a_settings &settings, int channels,
                   std::vector<std::string> &notes) {
    if (channels > 1 && channels_of(settings) == 1)
        notes.emplace_back("mono: mixing two channels down");
    if (channels == 1 && channels_of(settings) == 2)
        notes.push_back(mode_name(settings) + ": duplicating the one channel"
                        + (wanted.mode ? ""
                                       : ", since players of '" + wanted.preset_name
                                             + "' take no mono (--mode mono does it all the same)"));
}

} // namespace

int kbit_of(const mpeg_a_settings &settings) noexcept {
    return mpeg_a_bitrates[settings.audio_layer - 1][settings.audio_bitrate];
}

std::int64_t start_of(const mpeg_a_settings &settings) noexcept {
    if (settings.pts_units <= 0) return settings.pts_offset;
    return static_cast<std::int64_t>(static_cast<double>(settings.pts_offset) * 27e6
                                     / settings.pts_units);
}

stream_plan plan_stream(const options &wanted, const pcm_shape &input) {
    if (input.channels > 2 && !wanted.sound.mixes_down)
        throw failure(exit_code::input,
                      "the input has " + std::to_string(input.channels)
                          + " channels; MPEG-1 Audio has 1 or 2: mix it down first, or"
                            " leave --downmix none out");
    stream_plan plan;
    mpegOutAudioDefaults(&plan.settings, wanted.preset);
    if (input.channels == 1 && takes_mono(plan.settings, wanted.preset))
        plan.settings.audio_mode = MPEG_A_MODE_MONO;
    apply(wanted, plan.settings);
    note_channels(wanted, plan.settings, input.channels, plan.notes);
    if (wanted.bitrate)
        choose_bitrate(plan.settings, *wanted.bitrate);
    else
        choose_default_bitrate(plan.settings, wanted.preset, plan.notes);
    if (!standard_allows(plan.settings))
        plan.notes.push_back("the standard has no " + std::to_string(kbit_of(plan.settings))
                             + " kbit/s for " + layer_and_mode(plan.settings)
                             + "; some decoders will refuse the stream");
    return plan;
}

void check_rules(const options &wanted, const mpeg_a_settings &settings, int sample_rate,
                 const std::function<void(const std::string &)> &tell) {
    if (find_violations(settings, wanted.preset, sample_rate, tell) == 0) return;
    if (!is_usable(settings))
        throw failure(exit_code::rules, std::to_string(kbit_of(settings))
                                            + " kbit/s cannot be encoded: " + layer_and_mode(settings)
                                            + " has " + rates_of(settings));
    if (!wanted.force)
        throw failure(exit_code::rules,
                      "the stream would not conform to the preset '" + wanted.preset_name
                          + "'; change the above, or encode it all the same with --force");
}

} // namespace tools
