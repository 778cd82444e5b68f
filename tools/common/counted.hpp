// Numbers of things in sentences.
#pragma once

#include <array>
#include <cstdio>
#include <string>

namespace tools {

/// "1 file", "2 files"
template <class Number>
std::string counted(Number count, const std::string &thing) {
    return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

/// Up to 127 characters as printf has them.
std::string formatted(const char *format, auto... values) {
    std::array<char, 128> text;
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

} // namespace tools
