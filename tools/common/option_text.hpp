// What options say, read.
#pragma once

#include "settings/names.hpp"

#include <algorithm>
#include <charconv>
#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tools {

/// The decimal number that all of the text is; none where it is something else or too large.
template <class Number>
std::optional<Number> number_in(std::string_view text) {
    Number value{};
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
}

/// What stands before a separator, and behind it; nothing behind one that is not there.
inline std::pair<std::string_view, std::string_view> split_at(std::string_view text, char separator) {
    const std::size_t at = std::min(text.find(separator), text.size());
    return {text.substr(0, at), text.substr(std::min(at + 1, text.size()))};
}

/// @param right  what the text should be
[[noreturn]] inline void refuse(const std::string &option, const std::string &text,
                                const std::string &right) {
    throw CLI::ValidationError(option, "'" + text + "' should be " + right);
}

/// The option --preset: a name or a code.
inline void add_preset_option(CLI::App &app, const char *help,
                              const std::function<void(int code, const std::string &text)> &store) {
    const std::string names = list_of(preset_names);
    const auto read = [store, names](const std::string &text) {
        const auto code = preset_called(text);
        if (!code)
            refuse("--preset", text,
                   names + " or a code of 0 to " + std::to_string(highest_preset_code));
        store(*code, text);
    };
    app.add_option_function<std::string>("--preset", read, help)->type_name(names + "|CODE");
}

} // namespace tools
