// The verdict of the parser on frames that a target delivered.
#pragma once

#include "byte_source.hpp"
#include "parser/frame_parser.hpp"

namespace fuzz {

inline void judge_frame(std::span<const std::uint8_t> frame) {
    const auto parsed = tools::parse_frame(frame);
    const auto rule = parsed.broken_rule();
    if (!rule.empty()) std::fprintf(stderr, "%.*s\n", static_cast<int>(rule.size()), rule.data());
    expect(rule.empty(), "a frame breaks a rule");
}

} // namespace fuzz
