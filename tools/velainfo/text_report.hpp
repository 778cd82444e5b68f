// A report as a page of text, and frames as lines.
#pragma once

#include "velainfo/comparison.hpp"
#include "velainfo/sound_report.hpp"
#include "velainfo/stream_difference.hpp"
#include "velainfo/stream_report.hpp"

#include <string>

namespace tools {

/// @param compared  with the original; may be null
/// @param sound     may be null
std::string text_of(const stream_report &report, const comparison_totals *compared,
                    const sound_report *sound = nullptr);

/// One line: the verdict, what it is, its length, what is wrong first.
std::string brief_of(const stream_report &report);

/// How two streams differ; its first line is all that --brief prints.
std::string text_of(const stream_difference &difference);

/// The heading of --frames, and a frame's line below it.
std::string frame_line_heading();
/// @param offset  of the frame in its file
std::string frame_line(const stream_report &before, std::uint64_t offset, const parsed_frame &frame);

/// printf's formatting.
[[gnu::format(printf, 1, 2)]] std::string format(const char *pattern, ...);

} // namespace tools
