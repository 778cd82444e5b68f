#include "common/printable.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace tools {
namespace {

/// Bytes of the character that the text begins with; 0: none that can be printed.
std::size_t character_bytes(std::string_view text) {
    constexpr std::array<std::uint32_t, 5> smallest{0, 0x20, 0xA0, 0x800, 0x10000};
    const auto first = static_cast<std::uint8_t>(text[0]);
    const auto ones = static_cast<std::size_t>(std::countl_one(first));
    const std::size_t bytes = std::max<std::size_t>(ones, 1);
    if (ones == 1 || bytes >= smallest.size() || bytes > text.size()) return 0;
    std::uint32_t code = ones == 0 ? first : first & 0xFFu >> (ones + 1);
    for (const char next : text.substr(1, bytes - 1)) {
        if ((next & 0xC0) != 0x80) return 0;
        code = code << 6 | (static_cast<std::uint8_t>(next) & 0x3Fu);
    }
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    return code < smallest.at(bytes) || code == 0x7F || surrogate || code > 0x10FFFF ? 0 : bytes;
}

} // namespace

std::string printable(std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string shown;
    while (!text.empty()) {
        const std::size_t bytes = character_bytes(text);
        if (bytes == 0) {
            const auto value = static_cast<std::uint8_t>(text[0]);
            shown.append("\\x").append({digits[value >> 4], digits[value & 15]});
        }
        shown += text.substr(0, bytes);
        text.remove_prefix(std::max<std::size_t>(bytes, 1));
    }
    return shown;
}

} // namespace tools
