// Takes a stream apart into its frames.
#pragma once

#include "oracle/frame_parser.hpp"

#include <vector>

namespace velaenc_test {

struct frame : oracle::parsed_frame {
    std::size_t offset = 0, bytes = 0;
};

/// Frames from the first byte to the last; none at all when one of them breaks a rule, or when anything
/// else is between or after them.
std::vector<frame> frames_of(const std::string &stream);

} // namespace velaenc_test
