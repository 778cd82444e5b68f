#pragma once

#include "settings/record.hpp"

#include <string>

namespace velamp2 {

struct verdict {
    bool usable;          ///< whether an encoder can be made
    std::string messages; ///< every rule that is violated, a line each; empty without one
};

/// Checks the settings against the encoder's rules, the preset's and the standard's.
verdict judge(const mpeg_a_settings &settings, const tools::wishes &wished, int rate);

} // namespace velamp2
