#include "settings/names.hpp"

#include <algorithm>
#include <charconv>

namespace tools {

const named_value &name_of(std::span<const named_value> names, int value) noexcept {
    static constexpr named_value reserved{"reserved", -1, "reserved"};
    const auto found = std::ranges::find(names, value, &named_value::value);
    return found == names.end() ? reserved : *found;
}

std::string list_of(std::span<const named_value> names) {
    std::string list;
    for (const named_value &each : names) {
        if (!list.empty()) list += '|';
        list += each.name;
    }
    return list;
}

std::optional<int> value_of(std::span<const named_value> names, const std::string &name) noexcept {
    const auto found = std::ranges::find(names, name, &named_value::name);
    return found == names.end() ? std::nullopt : std::optional(found->value);
}

std::optional<int> preset_called(const std::string &text) noexcept {
    if (const auto code = value_of(preset_names, text)) return code;
    int code = -1;
    const char *const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, code);
    const bool is_code =
        error == std::errc() && rest == end && code >= 0 && code <= highest_preset_code;
    return is_code ? std::optional(code) : std::nullopt;
}

} // namespace tools
