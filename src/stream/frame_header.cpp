#include "stream/frame_header.hpp"

#include "stream/rate_tables.hpp"

namespace vela {

int init_frame_header(frame_header &header, const mpeg_a_settings &settings, int sample_rate) noexcept {
    const int frequency = sampling_frequency_index(sample_rate);
    if (frequency < 0) return -1;
    const auto byte = [](std::int32_t value) { return static_cast<std::uint8_t>(value); };
    header = {};
    header.id = 1;
    header.layer = byte(settings.audio_layer);
    header.error_protection = byte(settings.error_protection);
    header.bitrate_index = byte(settings.audio_bitrate);
    header.sampling_frequency = byte(frequency);
    header.extension = byte(settings.extension);
    header.mode = byte(settings.audio_mode);
    header.copyright = byte(settings.copyright);
    header.original = byte(settings.original);
    header.emphasis = byte(settings.emphasis);
    return 0;
}

std::uint32_t header_word(const frame_header &header) noexcept {
    std::uint32_t word = 0xFFF;
    const auto append = [&word](unsigned value, unsigned width) {
        word = word << width | (value & ((1U << width) - 1));
    };
    append(header.id, 1);
    append(4U - header.layer, 2);
    append(header.error_protection == 0, 1);
    append(header.bitrate_index, 4);
    append(header.sampling_frequency, 2);
    append(header.padding, 1);
    append(header.extension, 1);
    append(header.mode, 2);
    append(header.mode_extension, 2);
    append(header.copyright, 1);
    append(header.original, 1);
    append(header.emphasis, 2);
    return word;
}

} // namespace vela
