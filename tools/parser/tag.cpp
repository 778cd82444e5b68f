#include "parser/tag.hpp"

#include <algorithm>

namespace tools {
namespace {

using bytes_view = std::span<const std::uint8_t>;

/// ID3v2: a header of ten bytes, whose last four hold seven bits each; a footer of ten where a flag says so.
std::uint64_t id3_length(bytes_view bytes) {
    if (bytes.size() < 10 || bytes[3] == 0xFF || bytes[4] == 0xFF) return 0;
    std::uint64_t length = 0;
    for (const std::uint8_t byte : bytes.subspan(6, 4)) {
        if (byte > 127) return 0;
        length = length << 7 | byte;
    }
    return length + ((bytes[5] & 0x10) != 0 ? 20 : 10);
}

std::uint64_t id3v1_length(bytes_view bytes) {
    return bytes.size() > 3 && bytes[3] == '+' ? 227 : 128;
}

/// APEv2: the size counts the items and a footer; bit 29 of the flags tells a header from a footer.
std::uint64_t ape_length(bytes_view bytes) {
    constexpr std::uint64_t header = 32;
    if (bytes.size() < header || (bytes[23] & 0x20) == 0) return 0;
    std::uint64_t length = 0;
    for (std::size_t i = 16; i-- > 12;)
        length = length << 8 | bytes[i];
    return length + header;
}

/// Lyrics3: the end says that it is one, version 2 before it in six digits how long the tag is.
std::uint64_t lyrics_length(bytes_view bytes) {
    const std::string_view text(reinterpret_cast<const char *>(bytes.data()),
                                std::min(bytes.size(), longest_tag_search));
    constexpr std::string_view first_end = "LYRICSEND", second_end = "LYRICS200";
    const std::size_t end = std::min(text.find(first_end), text.find(second_end));
    return end == std::string_view::npos ? 0 : end + first_end.size();
}

struct tag_kind {
    std::string_view magic;
    std::uint64_t (*length)(bytes_view bytes);
};

constexpr tag_kind kinds[] = {{"ID3", id3_length},
                              {"TAG", id3v1_length},
                              {"APETAGEX", ape_length},
                              {"LYRICSBEGIN", lyrics_length}};

} // namespace

std::optional<stream_tag> read_tag(std::span<const std::uint8_t> bytes) {
    for (const auto &[magic, length_of] : kinds) {
        if (bytes.size() < magic.size() || !std::equal(magic.begin(), magic.end(), bytes.begin()))
            continue;
        const std::uint64_t length = length_of(bytes);
        if (length > 0) return stream_tag{magic, length};
    }
    return std::nullopt;
}

} // namespace tools
