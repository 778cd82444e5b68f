// What kind of file begins with these bytes, where it is no elementary stream.
#pragma once

#include <string>
#include <string_view>

namespace tools {

struct container_kind {
    std::string name;        ///< "mpegts", as JSON has it; empty for none
    std::string description; ///< "an MPEG transport stream"
};

/// Files that carry the frames of a stream among other things, by their first bytes.
/// @param start  some hundred bytes
container_kind container_of(std::string_view start);

/// Sound of other codings, for a file without a frame; empty when nothing is known.
std::string other_sound(std::string_view start);

} // namespace tools
