// Reports and frames for programs; docs/velainfo.md has the names.
#pragma once

#include "velainfo/comparison.hpp"
#include "velainfo/sound_report.hpp"
#include "velainfo/stream_difference.hpp"
#include "velainfo/stream_report.hpp"

#include <string>

namespace tools {

/// One object on one line. @param compared  with the original; may be null, and so may `sound`
std::string json_of(const stream_report &report, const comparison_totals *compared,
                    const sound_report *sound = nullptr);

/// One object on one line, about two streams.
std::string json_of(const stream_difference &difference);

/// The same for a file of which nothing can be said but why.
std::string json_of_unreadable(const std::string &name, const std::string &why);

/// One object on one line. @param offset  of the frame in its file
std::string json_of(const stream_report &before, std::uint64_t offset, const parsed_frame &frame);

} // namespace tools
