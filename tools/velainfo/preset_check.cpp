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

violation at(const header_use &use, std::string text) {
    return {.rule = "",
            .text = std::move(text),
            .frame = use.frame,
            .offset = use.offset,
            .seconds = use.seconds};
}

/// What no format lets change within a stream.
std::string kind_of(const header_fields &header) {
    return "Layer " + value_text(field::layer, header[field::layer]) + ", "
           + std::to_string(header[field::rate]) + " Hz, "
           + (header[field::mode] == 3 ? "one channel" : "two channels");
}

} // namespace

std::vector<std::pair<header_fields, header_use>> headers_in_order(const stream_report &report) {
    std::vector<std::pair<header_fields, header_use>> headers;
    for (const auto &[header, use] : report.headers) {
        headers.emplace_back(header, use);
        // No format refuses plain stereo in a joint stereo stream and takes the rest.
        int &mode = headers.back().first[field::mode];
        if (mode == MPEG_A_MODE_STEREO && report.values[field::mode].contains(MPEG_A_MODE_JOINT_STEREO))
            mode = MPEG_A_MODE_JOINT_STEREO;
    }
    std::ranges::sort(headers, {}, [](const auto &entry) { return entry.second.frame; });
    return headers;
}

std::vector<violation> check_preset(const stream_report &report, int preset) {
    std::vector<violation> violations;
    const auto tell = [&](const header_use &use, const std::string &text) {
        const auto same = [&](const violation &v) { return v.text == text; };
        if (std::ranges::none_of(violations, same)) violations.push_back(at(use, text));
    };
    const auto headers = headers_in_order(report);
    for (const auto &[header, use] : headers) {
        mpeg_a_settings settings{};
        mpegOutAudioDefaults(&settings, preset);
        settings.audio_layer = header[field::layer];
        settings.audio_bitrate = index_of(header[field::layer], header[field::kbps]);
        settings.audio_mode = header[field::mode];
        settings.emphasis = header[field::emphasis];
        settings.extension = header[field::private_bit];
        settings.error_protection = header[field::crc];
        settings.copyright = header[field::copyright];
        settings.original = header[field::original];
        find_violations(settings, preset, header[field::rate],
                        [&, &where = use](const std::string &text) { tell(where, text); });
        const std::string first = kind_of(headers.front().first), now = kind_of(header);
        if (now != first)
            tell(use, std::string("The stream changes from ").append(first).append(" to ").append(now)
                          + '.');
    }
    return violations;
}

} // namespace tools
