// Whole encodes in one call.
#pragma once

#include "api/encoder.hpp"
#include "host/fake_output.hpp"
#include "host/signals.hpp"

#include <algorithm>
#include <iterator>
#include <memory>
#include <span>

namespace mp1a_test {

struct stream {
    int layer = 2, mode = MPEG_A_MODE_STEREO, bitrate = 11, crc = 0, rate = 48000;
    int width = 2; ///< bytes per input sample
    std::int64_t pts_offset = 0;
    std::int32_t pts_units = 0;
    std::int32_t model = MPEG_A_MODEL_STANDARD;
    int flags = 0; ///< private bit, copyright, original, emphasis; 1, 2, 4 and from 8 on

    int channels() const { return mode == MPEG_A_MODE_MONO ? 1 : 2; }
    int frame_samples() const { return layer == 1 ? 384 : 1152; }
    /// Input of so many samples a channel.
    std::vector<std::uint8_t> pcm(int instants, waveform kind = waveform::noise,
                                  unsigned seed = 1) const {
        return pcm_bytes(make_signal(kind, instants * channels(), seed), width);
    }
    mpeg_a_settings settings() const {
        mpeg_a_settings record{};
        mpegOutAudioDefaults(&record, MPEG_A_PRESET_NONE);
        record.audio_layer = layer;
        record.audio_mode = mode;
        record.audio_bitrate = bitrate;
        record.error_protection = crc;
        record.psych_model = 1; // which must not matter
        record.audio_model = model;
        record.extension = flags & 1;
        record.copyright = flags >> 1 & 1;
        record.original = flags >> 2 & 1;
        record.emphasis = flags >> 3;
        record.pts_offset = pts_offset;
        record.pts_units = pts_units;
        return record;
    }
};

using encoder_pointer = std::unique_ptr<mpeg_a_encoder, void (*)(mpeg_a_encoder *)>;

/// A new encoder, not yet initialised.
inline encoder_pointer make_encoder(const stream &how, resource_lookup lookup = nullptr) {
    const mpeg_a_settings settings = how.settings();
    return {mpegOutAudioNew(lookup, &settings, 0, how.width, how.rate), mpegOutAudioFree};
}

inline std::int32_t put(mpeg_a_encoder *encoder, std::span<const std::uint8_t> pcm) {
    return mpegOutAudioPutBytes(encoder, pcm.data(), static_cast<std::uint32_t>(pcm.size()));
}

/// Init, PutBytes in one piece, Done.
inline std::vector<delivered_frame> encode(const stream &how, std::span<const std::uint8_t> pcm,
                                           vela::level level = vela::best_level()) {
    const encoder_pointer encoder = make_encoder(how);
    fake_output output;
    if (encoder == nullptr || encoder->init(&output, level) != 0) return {};
    put(encoder.get(), pcm);
    mpegOutAudioDone(encoder.get(), 0);
    return output.overrun ? std::vector<delivered_frame>{} : output.frames;
}

/// The bytes of the frames from `first` on.
inline std::vector<std::uint8_t> joined(const std::vector<delivered_frame> &frames,
                                        std::size_t first = 0) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t f = first; f < frames.size(); ++f)
        bytes.insert(bytes.end(), frames[f].bytes.begin(), frames[f].bytes.end());
    return bytes;
}

/// The levels that this machine runs.
inline std::vector<vela::level> levels() {
    std::vector<vela::level> found;
    std::ranges::copy_if(vela::all_levels, std::back_inserter(found), vela::is_supported);
    return found;
}

} // namespace mp1a_test
