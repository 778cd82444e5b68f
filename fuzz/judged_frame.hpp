// The verdict of the parser on frames that a target delivered.
#pragma once

#include "byte_source.hpp"
#include "host/fake_output.hpp"
#include "parser/frame_parser.hpp"

namespace fuzz {

inline void judge_frame(std::span<const std::uint8_t> frame) {
    const auto parsed = tools::parse_frame(frame);
    const auto rule = parsed.broken_rule();
    if (!rule.empty()) std::fprintf(stderr, "%.*s\n", static_cast<int>(rule.size()), rule.data());
    expect(rule.empty(), "a frame breaks a rule");
}

/// Judges what an output has of a stream. @param may_fail  the host made it, so that frames may be cut
inline void judge_frames(const mp1a_test::fake_output &output, bool may_fail) {
    expect(!output.overrun, "another block than the host's was written to");
    for (const auto &[bytes, header, info] : output.frames) {
        expect(bytes.size() <= info.length, "more than a frame was delivered");
        expect(bytes.size() == info.length || may_fail, "less than a frame was delivered");
        if (bytes.size() == info.length) judge_frame(bytes);
    }
}

} // namespace fuzz
