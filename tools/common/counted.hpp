// Numbers of things in sentences.
#pragma once

#include <string>

namespace tools {

/// "1 file", "2 files"
template <class Number>
std::string counted(Number count, const std::string &thing) {
    return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

} // namespace tools
