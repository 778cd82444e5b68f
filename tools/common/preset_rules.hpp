// The presets by name, and the library's messages about what breaks their rules.
#pragma once

#include "vela_enc_mp1a/settings.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tools {

/// Names and enum mpeg_a_preset, in the order of the help.
extern const std::vector<std::pair<std::string, int>> preset_codes;
constexpr int highest_preset_code = 19;

/// @param tell  gets the message of every rule that the settings break
/// @return the code of the first one, 0 without one
int find_violations(const mpeg_a_settings &settings, int preset, int sample_rate,
                    const std::function<void(const std::string &)> &tell);

} // namespace tools
