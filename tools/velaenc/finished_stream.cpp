#include "velaenc/finished_stream.hpp"

#include "common/failure.hpp"
#include "input/container.hpp"
#include "input/input_file.hpp"
#include "parser/frame_header.hpp"
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
std::optional<stream_header> header_at(const input_file &file, std::uint64_t offset) {
    std::array<std::uint8_t, header_bytes> bytes{};
    read_at(file, offset, std::as_writable_bytes(std::span(bytes)));
    return read_header(bytes);
}

} // namespace

bool holds_stream(const std::string &path, bool in_wave, const mpeg_a_settings &settings, int rate,
                  std::uint64_t frames) {
    input_file file;
    try {
        file = open_input(path);
    } catch (const failure &) {
        return false;
    }
    if (!file.seekable() || frames == 0) return false;
    const auto data = in_wave ? find_sound_data(fetch_from(file)) : chunk{0, file.size()};
    if (!data || !data->known || data->offset + data->bytes > file.size()) return false;
    const auto first = header_at(file, data->offset);
    if (!first || !is_frame_of(*first, settings, rate)) return false;
    const std::uint64_t size = data->bytes;
    const auto slot = static_cast<std::uint64_t>(first->slot_bytes());
    // On average over the padding, a frame has whole_slots + slot_rest / rate slots.
    const std::uint64_t total =
        (frames * static_cast<std::uint64_t>(first->whole_slots())
         + frames * static_cast<std::uint64_t>(first->slot_rest()) / static_cast<std::uint64_t>(rate))
        * slot;
    if (size + slot < total || size > total + 2 * slot) return false;
    for (const int padding : {0, 1}) {
        const auto length = static_cast<std::uint64_t>(first->whole_slots() + padding) * slot;
        const auto last = length <= size ? header_at(file, data->offset + size - length) : std::nullopt;
        if (last && last->padding == padding && is_frame_of(*last, settings, rate)) return true;
    }
    return false;
}

bool is_mpeg_audio(const std::string &head) {
    constexpr unsigned wave_format_mpeg = 0x50;
    const auto bytes = std::as_bytes(std::span(head));
    const auto fetch = [bytes](std::uint64_t offset, std::span<std::byte> room) {
        const auto rest = bytes.subspan(std::min<std::uint64_t>(offset, bytes.size()));
        const auto there = rest.first(std::min(rest.size(), room.size()));
        std::ranges::copy(there, room.begin());
        return there.size();
    };
    return wav_format(fetch) == wave_format_mpeg
           || read_header({reinterpret_cast<const std::uint8_t *>(head.data()), head.size()});
}

} // namespace tools
