// Tags that other programs put before, behind and between the frames of a stream.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

namespace tools {

struct stream_tag {
    std::string_view name; ///< "ID3"
    std::uint64_t length;  ///< as the tag itself says, its header included
};

/// How much of the input read_tag() has to see to find the end of a tag that does not say its length.
inline constexpr std::size_t longest_tag_search = 1 << 16;

/// The tag that begins with these bytes: ID3v2, ID3v1 with or without its extension, APEv2 with a header,
/// Lyrics3. None where nothing begins, or where its fields make no sense.
std::optional<stream_tag> read_tag(std::span<const std::uint8_t> bytes);

} // namespace tools
