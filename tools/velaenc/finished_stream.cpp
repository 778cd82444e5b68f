#include "velaenc/finished_stream.hpp"

#include "common/failure.hpp"
#include "input/container.hpp"
#include "input/input_file.hpp"
#include "parser/frame_header.hpp"
#include "parser/tag.hpp"
#include "settings/record.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <span>

namespace tools {
namespace {

/// A frame of a joint stereo stream may be plain stereo.
bool is_frame_of(const stream_header &header, const mpeg_a_settings &settings, int rate) {
    const bool has_mode = header.mode == settings.audio_mode
                          || (settings.audio_mode == MPEG_A_MODE_JOINT_STEREO && header.mode == 0);
    return has_mode && header.version == 1 && header.layer == settings.audio_layer
           && header.kbps == kbit_of(settings) && header.rate == rate
           && header.crc == settings.error_protection && header.private_bit == settings.extension
           && header.copyright == settings.copyright && header.original == settings.original
           && header.emphasis == settings.emphasis;
}

/// Bytes behind the end of the file count as zeros, which begin no frame.
std::optional<stream_header> header_at(const file_view &file, std::uint64_t offset) {
    std::array<std::uint8_t, header_bytes> bytes{};
    file(offset, std::as_writable_bytes(std::span(bytes)));
    return read_header(bytes);
}

/// Of a tag in front of the stream.
std::uint64_t tag_bytes(const file_view &file) {
    std::array<std::uint8_t, 32> head{}; // as many as any kind needs to tell its length
    file(0, std::as_writable_bytes(std::span(head)));
    const auto tag = read_tag(head);
    return tag ? tag->length : 0;
}

/// Where the stream of a WAV file begins; of another file, the first byte behind a tag.
std::uint64_t stream_begin(const file_view &file) {
    const auto data = is_wav(file) ? find_sound_data(file) : std::nullopt;
    return data ? data->offset : tag_bytes(file);
}

} // namespace

bool is_own_stream(const file_view &file) {
    const std::uint64_t begin = stream_begin(file);
    const auto first = header_at(file, begin);
    if (!first || first->version != 1) return false;
    const auto second = header_at(file, begin + static_cast<std::uint64_t>(first->bytes()));
    return second && second->same_kind(*first);
}

std::optional<std::uint64_t> frames_of_stream(const std::string &path, bool in_wave,
                                              const mpeg_a_settings &settings, int rate,
                                              std::optional<std::uint64_t> frames) {
    input_file file;
    try {
        file = open_input(path);
    } catch (const failure &) {
        return std::nullopt;
    }
    if (!file.seekable() || frames == 0) return std::nullopt;
    const std::uint64_t tag = in_wave ? 0 : std::min(tag_bytes(fetch_from(file)), file.size());
    const auto data =
        in_wave ? find_sound_data(fetch_from(file)) : chunk{tag, file.size() - tag, true, false, 1};
    if (!data || !data->known || data->offset + data->bytes > file.size()) return std::nullopt;
    const file_view view = fetch_from(file);
    const auto first = header_at(view, data->offset);
    if (!first || !is_frame_of(*first, settings, rate)) return std::nullopt;
    const std::uint64_t size = data->bytes;
    const auto slot = static_cast<std::uint64_t>(first->slot_bytes());
    // On average over the padding, a frame has whole + rest / rate slots; all of them less than one slot more.
    const auto hertz = static_cast<std::uint64_t>(rate);
    const auto whole = static_cast<std::uint64_t>(first->whole_slots()),
               rest = static_cast<std::uint64_t>(first->slot_rest()), slots = whole * hertz + rest;
    const std::uint64_t count = frames.value_or((size / slot * hertz + slots / 2) / slots);
    const std::uint64_t total = (count * whole + count * rest / hertz) * slot;
    if (size != total && size != total + slot) return std::nullopt;
    for (const int padding : {0, 1}) {
        const auto length = static_cast<std::uint64_t>(first->whole_slots() + padding) * slot;
        const auto last = length <= size ? header_at(view, data->offset + size - length) : std::nullopt;
        if (last && last->padding == padding && is_frame_of(*last, settings, rate)) return count;
    }
    return std::nullopt;
}

} // namespace tools
