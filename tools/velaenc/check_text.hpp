// What --check found, in words.
#pragma once

#include "check/stream_check.hpp"
#include "velaenc/loudness_goal.hpp"

#include <string>

namespace tools {

/// The second with the least signal-to-noise ratio of those that have sound; none without one.
std::optional<std::size_t> least_second(const check_result &checked);

/// dB by which the decoded sound has to be softer to stay within full scale, with some to spare; 0: it does.
double excess_of(const check_result &checked);

std::string check_text(const check_result &checked);

/// Which option, and with what value, keeps the sound within full scale.
/// @param encoded   how the sound was raised
/// @param loudness  where it was measured
std::string overs_text(const check_result &checked, const sound_options &encoded,
                       const std::optional<programme_loudness> &loudness);

} // namespace tools
