#include "common/preset_rules.hpp"

#include "vela_enc_mp1a/encoder.h"

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
    const int result = std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    (*rule_listener)(text.data());
    return result;
}

void *find_rule_teller(const char *name) {
    return name == std::string_view("err_printf") ? reinterpret_cast<void *>(&tell_rule) : nullptr;
}

} // namespace

const std::vector<std::pair<std::string, int>> preset_codes{
    {"vcd", MPEG_A_PRESET_VCD},   {"svcd", MPEG_A_PRESET_SVCD},
    {"dvd", MPEG_A_PRESET_DVD},   {"dvd-dual", MPEG_A_PRESET_DVD_DUAL},
    {"dvb", MPEG_A_PRESET_DVB},   {"micromv", MPEG_A_PRESET_MICROMV},
    {"dvhs", MPEG_A_PRESET_DVHS}, {"hdv", MPEG_A_PRESET_HDV},
    {"none", MPEG_A_PRESET_NONE},
};

int find_violations(const mpeg_a_settings &settings, int preset, int sample_rate,
                    const std::function<void(const std::string &)> &tell) {
    rule_listener = &tell;
    return mpegOutAudioChkSettings(find_rule_teller, &settings, preset, sample_rate, MPEG_A_CHECK_ALL,
                                   0);
}

} // namespace tools
