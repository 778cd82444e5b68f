#include "velainfo/preset_check.hpp"

#include "parser/standard_tables.hpp"
#include "settings/rules.hpp"
#include "vela_enc_mp1a/encoder.h"

#include <algorithm>

namespace tools {
namespace {

using field = stream_report::field;

int index_of(int layer, int kbps) {
    int index = 1;
    while (index < 14 && bitrate_of(layer, index) != kbps)
        ++index;
    return index;
}

} // namespace

std::vector<std::string> check_preset(const stream_report &report, int preset) {
    std::vector<std::string> violations;
    const auto tell = [&](const std::string &text) {
        if (std::ranges::find(violations, text) == violations.end()) violations.push_back(text);
    };
    mpeg_a_settings settings{};
    mpegOutAudioDefaults(&settings, preset);
    settings.audio_layer = report.usual(stream_report::layer);
    const int rate = report.usual(stream_report::rate);
    // One field at a time away from the usual values: every value is looked at, and the number of
    // checks stays small. Frames of plain stereo in a joint stream are no exception: no format refuses
    // them and takes the others.
    const std::pair<field, int32_t mpeg_a_settings::*> fields[] = {
        {stream_report::mode, &mpeg_a_settings::audio_mode},
        {stream_report::kbps, &mpeg_a_settings::audio_bitrate},
        {stream_report::emphasis, &mpeg_a_settings::emphasis},
        {stream_report::private_bit, &mpeg_a_settings::extension},
        {stream_report::crc, &mpeg_a_settings::error_protection},
        {stream_report::copyright, &mpeg_a_settings::copyright},
        {stream_report::original, &mpeg_a_settings::original}};
    const auto setting_of = [&](field which, int value) {
        return which == stream_report::kbps ? index_of(settings.audio_layer, value) : value;
    };
    for (const auto &[which, member] : fields)
        settings.*member = setting_of(which, report.usual(which));
    for (const auto &[which, member] : fields) {
        for (const auto &[value, count] : report.values[which]) {
            mpeg_a_settings changed = settings;
            changed.*member = setting_of(which, value);
            find_violations(changed, preset, rate, tell);
        }
    }
    return violations;
}

} // namespace tools
