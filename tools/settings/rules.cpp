#include "settings/rules.hpp"

#include "settings/names.hpp"
#include "settings/record.hpp"
#include "vela_enc_mp1a/encoder.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace tools {
namespace {

/// Message functions have no argument for the host's own use, so the listener waits here.
thread_local const std::function<void(const std::string &)> *rule_listener;

int tell_rule(const char *format, ...) {
    std::array<char, 512> text;
    std::va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer misses va_start
    const int result = std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    (*rule_listener)(text.data());
    return result;
}

void *find_rule_teller(const char *name) {
    return name == std::string_view("err_printf") ? reinterpret_cast<void *>(&tell_rule) : nullptr;
}

int check_silently(const mpeg_a_settings &settings, int preset, int rate) noexcept {
    return mpegOutAudioChkSettings(nullptr, &settings, preset, rate, 0, 0);
}

/// ISO/IEC 11172-3, 2.4.2.3: Layer II has the low rates for one channel only and the high ones for two only.
bool standard_allows(const mpeg_a_settings &settings) noexcept {
    if (settings.audio_layer == 1) return true;
    const int kbit = kbit_of(settings);
    return channels_of(settings) == 1 ? kbit <= 192 : kbit == 64 || kbit >= 96;
}

} // namespace

int find_violations(const mpeg_a_settings &settings, int preset, int sample_rate,
                    const std::function<void(const std::string &)> &tell) {
    rule_listener = &tell;
    return mpegOutAudioChkSettings(find_rule_teller, &settings, preset, sample_rate, MPEG_A_CHECK_ALL,
                                   0);
}

bool is_usable(const mpeg_a_settings &settings) noexcept {
    return check_silently(settings, MPEG_A_PRESET_NONE, all_rates[0]) == 0;
}

bool preset_takes(const mpeg_a_settings &settings, int preset) noexcept {
    mpeg_a_settings pure{};
    mpegOutAudioDefaults(&pure, preset);
    pure.audio_mode = settings.audio_mode;
    pure.audio_layer = settings.audio_layer;
    pure.audio_bitrate = settings.audio_bitrate;
    return std::ranges::any_of(all_rates,
                               [&](int rate) { return check_silently(pure, preset, rate) == 0; });
}

bool takes_mono(int preset) noexcept {
    mpeg_a_settings mono{};
    mpegOutAudioDefaults(&mono, preset);
    mono.audio_mode = MPEG_A_MODE_MONO;
    for (mono.audio_bitrate = 1; mono.audio_bitrate <= highest_bitrate_index; ++mono.audio_bitrate)
        if (standard_allows(mono) && preset_takes(mono, preset)) return true;
    return false;
}

std::vector<int> rates_of_preset(int preset) {
    mpeg_a_settings pure{};
    mpegOutAudioDefaults(&pure, preset);
    std::vector<int> rates;
    for (const int rate : all_rates)
        if (check_silently(pure, preset, rate) == 0) rates.push_back(rate);
    return rates.empty() ? std::vector(std::begin(all_rates), std::end(all_rates)) : rates;
}

std::string layer_and_mode(const mpeg_a_settings &settings) {
    return std::string(settings.audio_layer == 1 ? "Layer I " : "Layer II ")
           + name_of(mode_names, settings.audio_mode).text;
}

std::string bitrates_text(const mpeg_a_settings &settings) {
    std::string list;
    mpeg_a_settings each = settings;
    for (each.audio_bitrate = 1; each.audio_bitrate <= highest_bitrate_index; ++each.audio_bitrate)
        if (is_usable(each)) list += (list.empty() ? "" : ", ") + std::to_string(kbit_of(each));
    return layer_and_mode(settings) + " has " + list + " kbit/s";
}

std::string remark_on_bitrate(const mpeg_a_settings &settings) {
    if (standard_allows(settings)) return {};
    return "the standard has no " + std::to_string(kbit_of(settings)) + " kbit/s for "
           + layer_and_mode(settings) + "; some decoders will refuse the stream";
}

} // namespace tools
