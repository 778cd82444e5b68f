#include "input/container.hpp"

#include "common/byte_order.hpp"
#include "common/failure.hpp"

#include <algorithm>
#include <array>

namespace tools {
namespace {

/// The chunked containers differ only in these numbers.
struct chunk_layout {
    std::string_view magic; ///< the file's first bytes
    std::uint64_t first_chunk;
    std::size_t id_bytes; ///< the first four bytes are the name also where the identifier is longer
    std::size_t size_bytes;
    bool big_endian;
    bool size_covers_header;
    std::uint64_t alignment;
    std::string_view sound_chunk;
};

constexpr std::array<chunk_layout, 5> layouts{{
    {"RIFF", 12, 4, 4, false, false, 2, "data"},
    {"RF64", 12, 4, 4, false, false, 2, "data"},
    {"riff", 40, 16, 8, false, true, 8, "data"}, // W64
    {"FORM", 12, 4, 4, true, false, 2, "SSND"},
    {"caff", 8, 4, 8, true, false, 1, "data"},
}};

constexpr std::string_view au_magic = ".snd";

constexpr int most_chunks = 10000; ///< walks of damaged files end

bool is_name(std::string_view name) {
    return std::ranges::all_of(name, [](char each) { return each >= ' ' && each <= '~'; });
}

std::string_view name_of(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), 4};
}

/// Programs that write to a pipe put about the largest number, signed or unsigned, for a size that they
/// cannot know yet: 0xFFFFFFFF, 0x7FFFF000 rounded down to whole samples (SoX), 0x7FFF0000 (GStreamer),
/// 0x7F000008 (SoX in AIFF).
bool is_placeholder(std::uint64_t size, std::size_t size_bytes) {
    if (size_bytes == 8) return size >= std::uint64_t{1} << 62;
    return size >= 0xFFFF0000u || (size >= 0x7FFE0000u && size <= 0x80000000u)
           || (size >= 0x7F000000u && size <= 0x7F00FFFFu);
}

const chunk_layout *layout_of(const fetch_function &fetch) {
    const auto *found = std::ranges::find(layouts, name_at(fetch, 0), &chunk_layout::magic);
    return found == layouts.end() ? nullptr : found;
}

/// Of WAV and RF64, whose chunks have the same names.
const chunk_layout *wav_layout_of(const fetch_function &fetch) {
    const chunk_layout *layout = layout_of(fetch);
    return layout != nullptr && (layout->magic == "RIFF" || layout->magic == "RF64") ? layout : nullptr;
}

/// A number of so many bytes there; none where the file ends before.
std::optional<std::uint64_t> number_at(const fetch_function &fetch, std::uint64_t offset,
                                       std::size_t count, bool big = false) {
    std::array<std::byte, 8> bytes{};
    const auto room = std::span(bytes).first(count);
    if (fetch(offset, room) < count) return std::nullopt;
    return big ? big_endian(room) : little_endian(room);
}

/// Calls visit(name, chunk) for one after the other, until it returns true.
template <class Visit>
void for_each_chunk(const fetch_function &fetch, const chunk_layout &layout, Visit visit) {
    const std::size_t header_bytes = layout.id_bytes + layout.size_bytes;
    std::array<std::byte, 24> bytes{};
    const auto header = std::span(bytes).first(header_bytes);
    std::uint64_t offset = layout.first_chunk;
    for (int i = 0; i < most_chunks && fetch(offset, header) == header_bytes; ++i) {
        const auto field = header.subspan(layout.id_bytes);
        std::uint64_t size = layout.big_endian ? big_endian(field) : little_endian(field);
        const bool unknown = is_placeholder(size, layout.size_bytes);
        if (layout.size_covers_header) size -= std::min<std::uint64_t>(size, header_bytes);
        const chunk there{offset + header_bytes, size, !unknown, layout.size_bytes == 4,
                          layout.alignment};
        if (visit(name_of(header), there) || size >= std::uint64_t{1} << 62) break;
        offset = there.end();
    }
}

std::optional<chunk> find_chunk(const fetch_function &fetch, const chunk_layout &layout,
                                std::string_view name) {
    std::optional<chunk> found;
    for_each_chunk(fetch, layout, [&](std::string_view each, const chunk &there) {
        if (each == name) found = there;
        return found.has_value();
    });
    return found;
}

/// RF64 keeps the size of its data chunk in "ds64": the file's size, then the data's, 64 bits each. A
/// writer that could not go back to fill them in leaves zeros.
chunk with_rf64_size(const fetch_function &fetch, const chunk_layout &layout, chunk sound) {
    const auto sizes = find_chunk(fetch, layout, "ds64");
    const auto bytes = sizes ? number_at(fetch, sizes->offset + 8, 8) : std::nullopt;
    sound.bytes = bytes.value_or(0);
    sound.known = sound.bytes != 0 && !is_placeholder(sound.bytes, 8);
    sound.wraps = false;
    return sound;
}

/// Others put 0. That stands for no sound only where the size of the whole file was filled in
/// afterwards.
bool zero_is_placeholder(const fetch_function &fetch, const chunk &sound) {
    const auto size = number_at(fetch, 4, 4);
    return size && (*size + 8 <= sound.offset || is_placeholder(*size, 4));
}

/// AU has no chunks: the magic, then offset and size of the data.
std::optional<chunk> find_au_data(const fetch_function &fetch) {
    const auto offset = number_at(fetch, 4, 4, true), size = number_at(fetch, 8, 4, true);
    if (name_at(fetch, 0) != au_magic || !size) return std::nullopt;
    return chunk{*offset, *size, !is_placeholder(*size, 4), true, 1};
}

constexpr std::uint64_t lap = std::uint64_t{1} << 32; ///< after that many bytes a 32-bit size wraps

std::uint64_t bytes_there(const input_file &input, const chunk &sound) {
    return input.size() - std::min(sound.offset, input.size());
}

/// Whether a file of one of these kinds begins there.
bool begins_at(const fetch_function &fetch, std::uint64_t offset) {
    const std::string name = name_at(fetch, offset);
    return name == au_magic || std::ranges::find(layouts, name, &chunk_layout::magic) != layouts.end();
}

bool is_w64(const fetch_function &fetch) {
    const chunk_layout *layout = layout_of(fetch);
    return layout != nullptr && layout->magic == "riff";
}

/// The code in a "fmt " chunk; the extensible form has it at the start of its sub-format.
std::optional<std::uint64_t> format_code(const fetch_function &fetch,
                                         const std::optional<chunk> &format) {
    constexpr std::uint64_t extensible = 0xFFFE;
    if (!format) return std::nullopt;
    const auto code = number_at(fetch, format->offset, 2);
    return code == extensible ? number_at(fetch, format->offset + 24, 2) : code;
}

bool has_wrapped(const input_file &input, const chunk &sound) {
    return sound.wraps && sound.known && bytes_there(input, sound) >= sound.bytes + lap;
}

} // namespace

std::string name_at(const fetch_function &fetch, std::uint64_t offset) {
    std::array<std::byte, 4> bytes{};
    return std::string(fetch(offset, bytes) < bytes.size() ? "" : name_of(bytes));
}

bool begins_container(const fetch_function &fetch) {
    return begins_at(fetch, 0);
}

bool is_wav(const fetch_function &fetch) {
    constexpr std::array<std::string_view, 4> kinds{"RIFF", "RIFX", "RF64", "BW64"};
    return std::ranges::find(kinds, name_at(fetch, 0)) != kinds.end();
}

std::optional<chunk> find_wav_chunk(const fetch_function &fetch, std::string_view name) {
    const chunk_layout *layout = wav_layout_of(fetch);
    if (layout == nullptr) return std::nullopt;
    return find_chunk(fetch, *layout, name);
}

std::optional<std::uint64_t> wav_format(const fetch_function &fetch) {
    return format_code(fetch, find_wav_chunk(fetch, "fmt "));
}

bool has_w64_floats(const fetch_function &fetch) {
    constexpr std::uint64_t ieee_float = 3;
    return is_w64(fetch)
           && format_code(fetch, find_chunk(fetch, *layout_of(fetch), "fmt ")) == ieee_float;
}

std::vector<wav_chunk> read_wav_chunks(const input_file &input,
                                       const std::function<bool(std::string_view)> &wanted) {
    constexpr std::uint64_t longest = 16 << 20, most = 64 << 20;
    const auto fetch = fetch_from(input);
    const chunk_layout *layout = wav_layout_of(fetch);
    std::vector<wav_chunk> chunks;
    if (layout == nullptr) return chunks;
    std::uint64_t bytes = 0;
    const auto read = [&](std::string_view name, const chunk &there) {
        if (!is_name(name) || !wanted(name)) return;
        auto &[kept, contents, is_whole] = chunks.emplace_back(wav_chunk{std::string(name), {}});
        is_whole = there.bytes <= longest && (bytes += there.bytes) <= most;
        contents.resize(is_whole ? static_cast<std::size_t>(there.bytes) : 0);
        contents.resize(read_at(input, there.offset, contents));
        is_whole = is_whole && contents.size() == there.bytes;
    };
    for_each_chunk(fetch, *layout, [&](std::string_view name, const chunk &there) {
        read(name, there);
        return name == layout->sound_chunk;
    });
    const auto sound = find_sound_data(fetch);
    if (!sound || !sound->known) return chunks;
    chunk_layout behind = *layout;
    behind.first_chunk = sound->end();
    for_each_chunk(fetch, behind, [&](std::string_view name, const chunk &there) {
        read(name, there);
        return false;
    });
    return chunks;
}

std::optional<chunk> find_sound_data(const fetch_function &fetch) {
    const chunk_layout *layout = layout_of(fetch);
    if (layout == nullptr) return find_au_data(fetch);
    auto sound = find_chunk(fetch, *layout, layout->sound_chunk);
    if (sound && layout->magic == "RF64") return with_rf64_size(fetch, *layout, *sound);
    if (sound && layout->magic == "RIFF" && sound->bytes == 0)
        sound->known = !zero_is_placeholder(fetch, *sound);
    return sound;
}

fetch_function fetch_from(const input_file &input) {
    return [&input](std::uint64_t offset, std::span<std::byte> room) {
        return read_at(input, offset, room);
    };
}

bool begins_chunk(std::span<const std::byte> header) noexcept {
    return header.size() >= 8 && is_name(name_of(header));
}

std::uint64_t sound_bytes(const input_file &input, const chunk &sound, length_rule rule) {
    const std::uint64_t there = bytes_there(input, sound);
    if (!sound.known && (sound.bytes == 0 || sound.bytes > there)) return there;
    if (sound.bytes > there) {
        report_missing(input, sound.bytes - there, rule);
        return there;
    }
    if (has_wrapped(input, sound)) {
        input.note("has more sound than the 32 bits of its header can count; all of it is encoded");
        return sound.bytes + (there - sound.bytes) / lap * lap;
    }
    std::array<std::byte, 8> header{};
    const std::uint64_t behind = sound.end();
    if (read_at(input, behind, header) < header.size()) return sound.bytes;
    if (begins_at(fetch_from(input), behind)) report_second(input, behind, rule);
    if (begins_chunk(header)) return sound.bytes;
    if (rule != length_rule::ignored) {
        input.note("has " + std::to_string(input.size() - behind)
                   + " bytes behind its sound that are no chunk and are left out; --ignore-length takes"
                     " them for sound");
        return sound.bytes;
    }
    input.note("goes on where its header ends it; all of it is encoded");
    return there;
}

std::uint64_t bytes_with_sound(const input_file &input, length_rule rule) {
    const auto fetch = fetch_from(input);
    const auto sound = find_sound_data(fetch);
    const bool is_counted = sound && sound->known && sound->bytes > 0;
    if (!is_w64(fetch) || !is_counted || sound->bytes > bytes_there(input, *sound)) return input.size();
    return sound->offset + sound_bytes(input, *sound, rule);
}

void check_chunks(const input_file &input, const chunk &sound, length_rule rule) {
    const std::uint64_t there = bytes_there(input, sound);
    if (sound.known && sound.bytes > there) report_missing(input, sound.bytes - there, rule);
    if (sound.known && begins_at(fetch_from(input), sound.end()))
        report_second(input, sound.end(), rule);
    if (has_wrapped(input, sound))
        throw failure(exit_code::input,
                      input.name
                          + " has more sound than the 32 bits of its header can count; convert it to "
                            "W64 or RF64, or to WAV of 16 or 24 bits or floats");
}

std::optional<size_field> corrected_size(const input_file &input) {
    const auto fetch = fetch_from(input);
    const chunk_layout *layout = layout_of(fetch);
    if (layout == nullptr || layout->magic != "caff") return std::nullopt;
    const auto sound = find_chunk(fetch, *layout, layout->sound_chunk);
    if (!sound || sound->bytes <= bytes_there(input, *sound)) return std::nullopt;
    size_field field{sound->offset - 8, {}};
    for (std::size_t i = 0; i < field.bytes.size(); ++i)
        field.bytes[i] = static_cast<std::byte>(bytes_there(input, *sound) >> (56 - 8 * i));
    return field;
}

} // namespace tools
