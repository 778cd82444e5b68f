// What options say, read.
#pragma once

#include <charconv>
#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace tools {

/// The decimal number that all of the text is; none where it is something else or too large.
template <class Number>
std::optional<Number> number_in(std::string_view text) {
    Number value{};
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
}

/// @param right  what the text should be
[[noreturn]] inline void refuse(const std::string &option, const std::string &text,
                                const std::string &right) {
    throw CLI::ValidationError(option, "'" + text + "' should be " + right);
}

} // namespace tools
