#include "host/encoding.hpp"

#include <algorithm>
#include <iterator>

namespace mp1a_test {

mpeg_a_settings stream::settings() const {
    mpeg_a_settings record{};
    mpegOutAudioDefaults(&record, MPEG_A_PRESET_NONE);
    record.audio_layer = layer;
    record.audio_mode = mode;
    record.audio_bitrate = bitrate;
    record.error_protection = crc;
    return record;
}

encoder_pointer make_encoder(const stream &how) {
    const mpeg_a_settings settings = how.settings();
    return {mpegOutAudioNew(nullptr, &settings, 0, how.width, how.rate), mpegOutAudioFree};
}

std::vector<delivered_frame> encode(const stream &how, std::span<const std::uint8_t> pcm,
                                    vela::level level) {
    const encoder_pointer encoder = make_encoder(how);
    fake_output output;
    if (encoder == nullptr || encoder->init(&output, level) != 0) return {};
    mpegOutAudioPutBytes(encoder.get(), pcm.data(), static_cast<std::uint32_t>(pcm.size()));
    mpegOutAudioDone(encoder.get(), 0);
    return output.overrun ? std::vector<delivered_frame>{} : output.frames;
}

std::vector<vela::level> levels() {
    std::vector<vela::level> found;
    std::ranges::copy_if(vela::all_levels, std::back_inserter(found), vela::is_supported);
    return found;
}

} // namespace mp1a_test
