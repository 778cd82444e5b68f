#include "verdict.hpp"

#include "settings/rules.hpp"
#include "vela_enc_mp1a/encoder.h"

namespace velamp2 {

verdict judge(const mpeg_a_settings &settings, const tools::wishes &wished, int rate) {
    verdict result{true, {}};
    const auto add = [&](const std::string &line) {
        if (line.empty()) return;
        result.messages += (result.messages.empty() ? "" : "\n") + line;
    };
    const int code = tools::find_violations(settings, wished.preset_code(), rate, add);
    result.usable = code <= MPEG_A_LAST_FORMAT_CODE;
    if (!result.usable && !tools::is_usable(settings))
        add("bitrate=" + std::to_string(wished.bitrate.value_or(tools::kbit_of(settings)))
            + " cannot be encoded: " + tools::bitrates_text(settings));
    else
        add(tools::remark_on_bitrate(settings));
    return result;
}

} // namespace velamp2
