// Reports and frames for programs; docs/velainfo.md has the names.
#pragma once

#include "velainfo/comparison.hpp"
#include "velainfo/stream_report.hpp"

#include <string>

namespace tools {

/// One object on one line. @param compared  with the original; may be null
std::string json_of(const stream_report &report, const comparison_totals *compared);

/// One object on one line.
std::string json_of(const stream_report &before, const stream_piece &piece, const parsed_frame &frame);

} // namespace tools
