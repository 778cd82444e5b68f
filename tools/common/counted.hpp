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

/// A number as printf's format has it.
inline std::string formatted(const char *format, double value) {
    std::array<char, 48> text;
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

} // namespace tools
