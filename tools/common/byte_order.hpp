// Numbers of up to eight bytes as they stand in files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tools {

inline std::uint64_t big_endian(std::span<const std::byte> bytes) noexcept {
    std::uint64_t value = 0;
    for (const std::byte each : bytes)
        value = value << 8 | std::to_integer<std::uint64_t>(each);
    return value;
}

inline std::uint64_t little_endian(std::span<const std::byte> bytes) noexcept {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i > 0; --i)
        value = value << 8 | std::to_integer<std::uint64_t>(bytes[i - 1]);
    return value;
}

/// As many bytes as there are, from the lowest one on.
inline void set_little_endian(std::span<std::byte> bytes, std::uint64_t value) noexcept {
    for (std::byte &each : bytes) {
        each = static_cast<std::byte>(value);
        value >>= 8;
    }
}

} // namespace tools
