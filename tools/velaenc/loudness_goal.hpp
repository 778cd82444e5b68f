// How loud the stream becomes: what --loudness, --true-peak and --measure ask for.
#pragma once

#include "loudness/loudness_record.hpp"
#include "velaenc/sound_options.hpp"

#include <string>

namespace tools {

/// How loud what is encoded is, and what was done about it.
struct programme_loudness {
    loudness_figures figures;
    double gain_db = 0;           ///< by which all of the input is raised
    bool limited_by_peak = false; ///< the bound of the true peak decided that gain, not the target
};

/// One gain for the whole programme: to the target, but not beyond the bound of the true peak. None
/// without a target, or for sound that has no loudness.
/// @param input  figures of the sound as it comes
programme_loudness reach_goal(const loudness_figures &input, const sound_options &wanted);

/// What the user should know of it: the figures, and where the target was not reached, why.
std::string loudness_text(const programme_loudness &reached, const sound_options &wanted);

} // namespace tools
