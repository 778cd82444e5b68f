// A stream against a format's rules.
#pragma once

#include "velainfo/stream_report.hpp"

#include <utility>
#include <vector>

namespace tools {

/// All that the headers say, in the order in which it first occurs. Plain stereo of a joint stereo stream
/// counts as joint stereo.
std::vector<std::pair<header_fields, header_use>> headers_in_order(const stream_report &report);

/// The library's messages, each once, about every header of the stream that breaks a rule of the preset.
std::vector<violation> check_preset(const stream_report &report, int preset);

} // namespace tools
