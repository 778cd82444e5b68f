// A stream's headers against the rules of a preset.
#pragma once

#include "velainfo/stream_report.hpp"

namespace tools {

/// The library's messages about every combination of header values that the stream has.
std::vector<std::string> check_preset(const stream_report &report, int preset);

} // namespace tools
