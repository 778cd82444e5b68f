// From the user's wishes and the input's shape to the encoder's settings record, and its rules.
#pragma once

#include "input/pcm_source.hpp"
#include "vela_enc_mp1a/settings.h"
#include "velaenc/options.hpp"

#include <functional>
#include <string>
#include <vector>

namespace tools {

struct stream_plan {
    mpeg_a_settings settings;
    std::vector<std::string> notes; ///< what the user did not ask for, or may not expect
};

/// The preset's defaults, then the options, then what the input suggests.
/// @throws failure when the channels do not fit or the bitrate does not exist
stream_plan plan_stream(const options &wanted, const pcm_shape &input);

/// @param tell  gets every violated rule
/// @throws failure when the settings are unusable, or non-conforming without --force
void check_rules(const options &wanted, const mpeg_a_settings &settings, int sample_rate,
                 const std::function<void(const std::string &)> &tell);

} // namespace tools
