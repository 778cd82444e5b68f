#include "settings.hpp"

#include "vela_enc_mp1a/encoder.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace velamp2 {
namespace {

constexpr int highest_index = std::size(mpeg_a_bitrates[0]) - 1;

bool is_mono(const mpeg_a_settings &settings) noexcept {
    return channels_of(settings) == 1;
}

/// ISO/IEC 11172-3, 2.4.2.3: Layer II has the low rates for one channel only and the high ones for two only.
bool standard_allows(const mpeg_a_settings &settings) noexcept {
    if (settings.audio_layer == 1) return true;
    const int kbit = kbit_of(settings);
    return is_mono(settings) ? kbit <= 192 : kbit == 64 || kbit >= 96;
}

int index_of(mpeg_a_settings settings, int kbit) noexcept {
    for (settings.audio_bitrate = highest_index; settings.audio_bitrate > 0; --settings.audio_bitrate)
        if (kbit_of(settings) == kbit) break;
    return settings.audio_bitrate;
}

std::int32_t check_silently(const mpeg_a_settings &settings, std::int32_t preset, int rate) noexcept {
    return mpegOutAudioChkSettings(nullptr, &settings, preset, rate, 0, 0);
}

/// At any rate.
bool is_usable(const mpeg_a_settings &settings) noexcept {
    return check_silently(settings, MPEG_A_PRESET_NONE, all_rates[0]) == 0;
}

/// Whether the preset would take this mode, layer and bitrate, everything else being its own.
bool preset_takes(const mpeg_a_settings &settings, std::int32_t preset) noexcept {
    mpeg_a_settings pure{};
    mpegOutAudioDefaults(&pure, preset);
    pure.audio_mode = settings.audio_mode;
    pure.audio_layer = settings.audio_layer;
    pure.audio_bitrate = settings.audio_bitrate;
    return std::any_of(std::begin(all_rates), std::end(all_rates),
                       [&](int rate) { return check_silently(pure, preset, rate) == 0; });
}

/// A preset's bitrate is meant for two channels of Layer II. One channel gets half of it, Layer I what
/// it needs for the same quality; then the next rate that the preset allows. velaenc does the same.
int default_bitrate(mpeg_a_settings settings, std::int32_t preset) {
    const bool mono = is_mono(settings);
    if (!mono && settings.audio_layer == 2) return settings.audio_bitrate;
    const int kbit = settings.audio_layer == 1 ? (mono ? 192 : 384) : kbit_of(settings) / 2;
    const int preferred = index_of(settings, kbit);
    for (settings.audio_bitrate = preferred; settings.audio_bitrate <= highest_index;
         ++settings.audio_bitrate)
        if (preset_takes(settings, preset)) return settings.audio_bitrate;
    return preferred;
}

std::string layer_and_mode(const mpeg_a_settings &settings) {
    return std::string(settings.audio_layer == 1 ? "Layer I" : "Layer II")
           + (is_mono(settings) ? " with one channel" : " with two channels");
}

std::string bitrates_of(mpeg_a_settings settings) {
    std::string list;
    for (settings.audio_bitrate = 1; settings.audio_bitrate <= highest_index; ++settings.audio_bitrate)
        if (is_usable(settings)) list += (list.empty() ? "" : ", ") + std::to_string(kbit_of(settings));
    return list + " kbit/s";
}

/// Message functions have no argument for the host's own use.
thread_local std::string *collected = nullptr;

int collect(const char *format, ...) {
    std::array<char, 256> line{};
    std::va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer misses va_start
    const int length = std::vsnprintf(line.data(), line.size(), format, arguments);
    va_end(arguments);
    if (!collected->empty()) *collected += '\n';
    *collected += line.data();
    return length;
}

void *find_collector(const char *name) {
    return name == std::string_view("err_printf") ? reinterpret_cast<void *>(&collect) : nullptr;
}

} // namespace

mpeg_a_settings settle(const wishes &wished, int channels, int layer) {
    mpeg_a_settings settings{};
    mpegOutAudioDefaults(&settings, wished.preset_code());
    if (channels == 1) settings.audio_mode = MPEG_A_MODE_MONO;
    settings.audio_mode = wished.mode.value_or(settings.audio_mode);
    settings.audio_layer = wished.layer.value_or(layer);
    for (const plain_field &row : plain_fields)
        settings.*row.field = (wished.*row.wish).value_or(settings.*row.field);
    settings.audio_bitrate = wished.bitrate ? index_of(settings, *wished.bitrate)
                                            : default_bitrate(settings, wished.preset_code());
    return settings;
}

std::vector<int> rates_of_preset(std::int32_t preset) {
    mpeg_a_settings pure{};
    mpegOutAudioDefaults(&pure, preset);
    std::vector<int> rates;
    for (const int rate : all_rates)
        if (check_silently(pure, preset, rate) == 0) rates.push_back(rate);
    return rates;
}

verdict judge(const mpeg_a_settings &settings, const wishes &wished, int rate) {
    verdict result{true, {}};
    collected = &result.messages;
    const std::int32_t code = mpegOutAudioChkSettings(find_collector, &settings, wished.preset_code(),
                                                      rate, MPEG_A_CHECK_ALL, 0);
    collected = nullptr;
    result.usable = code <= MPEG_A_LAST_FORMAT_CODE;
    std::string remark;
    if (!result.usable && !is_usable(settings))
        remark = "bitrate=" + std::to_string(wished.bitrate.value_or(kbit_of(settings)))
                 + " cannot be encoded: " + layer_and_mode(settings) + " has " + bitrates_of(settings);
    else if (!standard_allows(settings))
        remark = "the standard has no " + std::to_string(kbit_of(settings)) + " kbit/s for "
                 + layer_and_mode(settings) + "; some decoders will refuse the stream";
    if (!remark.empty()) result.messages += (result.messages.empty() ? "" : "\n") + remark;
    return result;
}

} // namespace velamp2
