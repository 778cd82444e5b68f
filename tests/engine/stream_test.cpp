// The same frames whichever way an encoder is reached.
#include "engine/raw_calls.hpp"
#include "engine/sink.hpp"
#include "host/signals.hpp"
#include "vela_enc_mp1a/engine.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace mp1a_test {
namespace {

struct subject {
    int preset, bits;
    std::int32_t rate;
    mpeg_a_settings settings;
    std::vector<std::uint8_t> pcm;
};

std::vector<delivered_frame> through_functions(const subject &what) {
    fake_output output;
    mpeg_a_encoder *const encoder =
        mpegOutAudioNew(nullptr, &what.settings, 0, what.bits / 8, what.rate);
    if (encoder == nullptr || mpegOutAudioInit(encoder, &output) != 0) return {};
    mpegOutAudioPutBytes(encoder, what.pcm.data(), static_cast<std::uint32_t>(what.pcm.size()));
    mpegOutAudioDone(encoder, 0);
    mpegOutAudioFree(encoder);
    return output.frames;
}

/// In pieces of 1000 samples; into a sink when there is no `output`.
std::vector<delivered_frame> through_engine(const subject &what, bool plain, fake_output *output) {
    sink host;
    {
        handle engine(get_encMP1A());
        handle params(engine.object, params_identifier), data(engine.object, data_identifier);
        params.set("settings::sampling_bits", what.bits);
        params.set("preset::audio_type", what.preset);
        if (!plain) params.text("init::settings", &what.settings, sizeof what.settings);
        output == nullptr ? params.bind(host) : params.text("init::output::bufstream", output);
        const std::int32_t width = what.bits / 8;
        const auto samples = static_cast<std::int32_t>(what.pcm.size()) / width;
        for (std::int32_t at = 0; at < samples; at += 1000)
            EXPECT_EQ(data.put(what.pcm.data() + at * width, width, std::min(1000, samples - at)), 0);
    }
    return output == nullptr ? host.frames : output->frames;
}

TEST(engine_stream, frames_and_time_stamps_equal_those_of_the_functions_for_every_preset) {
    // 4000 pairs are three frames of Layer II and a part of one.
    const auto signal =
        interleave(make_signal(waveform::tone, 4000), make_signal(waveform::noise, 4000));
    const int at_48_khz[] = {4, 8, 9, 10, 13, 14, 15, 18, 19};
    const struct { int mode, layer; } shapes[] = {{0, 2}, {1, 2}, {2, 2}, {3, 2}, {0, 1}};
    for (int preset = -1; preset <= 20; ++preset) {
        for (const int bits : {16, 24, 32}) {
            for (const auto &[mode, layer] : shapes) {
                SCOPED_TRACE(testing::Message()
                             << preset << ' ' << bits << ' ' << mode << ' ' << layer);
                subject what{preset,
                             bits,
                             std::ranges::count(at_48_khz, preset) != 0 ? 48000 : 44100,
                             {},
                             pcm_bytes(signal, bits / 8)};
                mpegOutAudioDefaults(&what.settings, preset);
                const bool plain = mode == 0 && layer == 2;
                if (!plain) what.settings.pts_offset = preset * 1000;
                what.settings.audio_mode = mode;
                what.settings.audio_layer = layer;
                const auto expected = through_functions(what);
                ASSERT_GE(expected.size(), 4u);
                fake_output output;
                const auto pushed = through_engine(what, plain, nullptr);
                const auto lent = through_engine(what, plain, &output);
                ASSERT_EQ(pushed.size(), expected.size());
                ASSERT_EQ(lent.size(), expected.size());
                for (std::size_t i = 0; i < expected.size(); ++i) {
                    ASSERT_EQ(pushed[i].bytes, expected[i].bytes) << "frame " << i;
                    ASSERT_EQ(pushed[i].info.time_stamp, expected[i].info.time_stamp) << "frame " << i;
                    ASSERT_EQ(lent[i].bytes, expected[i].bytes) << "frame " << i;
                }
            }
        }
    }
}

} // namespace
} // namespace mp1a_test
