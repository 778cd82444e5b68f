// In which fields two frames differ.
#pragma once

#include "parser/frame_parser.hpp"

#include <string>
#include <vector>

namespace tools {

struct field_difference {
    std::string field; ///< "kbps", "allocation", ...
    std::string place; ///< "left, subband 3"; empty for fields of the whole frame
    std::string values[2];
};

/// A frame down to its sample codes.
struct frame_contents {
    std::span<const std::uint8_t> bytes;
    parsed_frame frame{};
    sample_codes codes;
};

/// Of every field the first place, in the order of the frame; the CRC comes last, since it follows from other
/// fields. Where a frame is damaged nothing behind its header is compared. Not empty for frames of different bytes.
std::vector<field_difference> differences_of(const frame_contents &first, const frame_contents &second);

} // namespace tools
