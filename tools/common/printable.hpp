// Text from outside, such as the name of a file, for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace tools {

/// The text with everything that is not a printable character of UTF-8 as \xHH, byte by byte, so that it
/// cannot control the terminal.
std::string printable(std::string_view text);

} // namespace tools
