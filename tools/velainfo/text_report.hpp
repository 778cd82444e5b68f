// A report as a page of text, and frames as lines.
#pragma once

#include "velainfo/comparison.hpp"
#include "velainfo/stream_report.hpp"

#include <string>

namespace tools {

/// @param compared  with the original; may be null
std::string text_of(const stream_report &report, const comparison_totals *compared);

/// The heading of --frames, and a frame's line below it.
std::string frame_line_heading();
std::string frame_line(const stream_report &before, const stream_piece &piece,
                       const parsed_frame &frame);

/// printf's formatting.
[[gnu::format(printf, 1, 2)]] std::string format(const char *pattern, ...);

} // namespace tools
