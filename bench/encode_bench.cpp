// Whole encodes and Init, at every level.
#include "api/encoder.hpp"
#include "signal.hpp"
#include "stream/rate_tables.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <span>
#include <string>

namespace {

using namespace vela;
using namespace vela::bench;

/// Takes frames and forgets them.
struct null_output : bufstream {
    std::uint8_t block[4096];
    std::int64_t frames = 0;

    null_output() : bufstream{} {
        request = [](bufstream *self, std::uint32_t) {
            return static_cast<null_output *>(self)->block;
        };
        commit = [](bufstream *, std::uint32_t n) { return n; };
        chunk_size = [](bufstream *) { return std::uint32_t{sizeof block}; };
        auxinfo = [](bufstream *self, std::uint32_t, std::uint32_t id, const void *, std::uint32_t) {
            if (id == MPEG_A_FRAME_INFO) ++static_cast<null_output *>(self)->frames;
            return std::uint32_t{0};
        };
    }
};

struct stream_case {
    const char *name;
    int layer, mode, sample_rate, kbps;
    mpeg_a_model model = MPEG_A_MODEL_STANDARD;
    bool frame_by_frame = false; ///< a call for every frame; else one for ten seconds
};

constexpr stream_case cases[] = {
    {"layer2/stereo/48000/224", 2, MPEG_A_MODE_STEREO, 48000, 224},
    {"layer2/joint/48000/128", 2, MPEG_A_MODE_JOINT_STEREO, 48000, 128},
    {"layer2/mono/48000/128", 2, MPEG_A_MODE_MONO, 48000, 128},
    {"layer2/stereo/44100/224", 2, MPEG_A_MODE_STEREO, 44100, 224},
    {"layer1/stereo/48000/384", 1, MPEG_A_MODE_STEREO, 48000, 384},
    {"layer1/joint/48000/192", 1, MPEG_A_MODE_JOINT_STEREO, 48000, 192},
    {"layer1/mono/44100/192", 1, MPEG_A_MODE_MONO, 44100, 192},
    {"layer2/stereo/48000/224/frame_by_frame", 2, MPEG_A_MODE_STEREO, 48000, 224, MPEG_A_MODEL_STANDARD,
     true},
    {"layer2/mono/48000/128/frame_by_frame", 2, MPEG_A_MODE_MONO, 48000, 128, MPEG_A_MODEL_STANDARD,
     true},
    {"layer1/stereo/48000/384/frame_by_frame", 1, MPEG_A_MODE_STEREO, 48000, 384, MPEG_A_MODEL_STANDARD,
     true},
    {"layer1/mono/44100/192/frame_by_frame", 1, MPEG_A_MODE_MONO, 44100, 192, MPEG_A_MODEL_STANDARD,
     true},
    {"layer2/mono/48000/128/tuned", 2, MPEG_A_MODE_MONO, 48000, 128, MPEG_A_MODEL_TUNED},
    {"layer2/stereo/48000/224/tuned", 2, MPEG_A_MODE_STEREO, 48000, 224, MPEG_A_MODEL_TUNED},
    {"layer2/joint/48000/128/tuned", 2, MPEG_A_MODE_JOINT_STEREO, 48000, 128, MPEG_A_MODEL_TUNED},
    {"layer1/stereo/48000/384/tuned", 1, MPEG_A_MODE_STEREO, 48000, 384, MPEG_A_MODEL_TUNED},
};

mpeg_a_encoder *make_encoder(const stream_case &stream) {
    mpeg_a_settings settings{};
    mpegOutAudioDefaults(&settings, MPEG_A_PRESET_NONE);
    settings.audio_layer = stream.layer;
    settings.audio_mode = stream.mode;
    settings.audio_model = stream.model;
    while (bitrate_kbps(stream.layer, settings.audio_bitrate) != stream.kbps) {
        settings.audio_bitrate = settings.audio_bitrate % 14 + 1;
    }
    return mpegOutAudioNew(nullptr, &settings, 0, 2, stream.sample_rate);
}

void encode(benchmark::State &state, const stream_case &stream, level which) {
    const int channels = stream.mode == MPEG_A_MODE_MONO ? 1 : 2;
    const auto music = make_music(10, stream.sample_rate, channels);
    mpeg_a_encoder *const encoder = make_encoder(stream);
    null_output output;
    encoder->init(&output, which);
    const auto all = std::as_bytes(std::span(music));
    const auto frame =
        static_cast<std::size_t>(samples_per_frame(stream.layer) * channels) * sizeof music[0];
    const std::size_t most = stream.frame_by_frame ? frame : all.size();
    for (auto _ : state) {
        for (auto rest = all; !rest.empty(); rest = rest.subspan(std::min(most, rest.size()))) {
            encoder->put_bytes(rest.data(), static_cast<std::uint32_t>(std::min(most, rest.size())));
        }
    }
    const double frames = static_cast<double>(output.frames);
    const double seconds = frames * samples_per_frame(stream.layer) / stream.sample_rate;
    state.counters["x_realtime"] = benchmark::Counter(seconds, benchmark::Counter::kIsRate);
    state.counters["s_per_frame"] =
        benchmark::Counter(frames, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    mpegOutAudioFree(encoder);
}

void init(benchmark::State &state, const stream_case &stream, level which) {
    mpeg_a_encoder *const encoder = make_encoder(stream);
    null_output output;
    for (auto _ : state)
        encoder->init(&output, which);
    mpegOutAudioFree(encoder);
}

const int encodes_registered = [] {
    for (const level which : supported_levels()) {
        for (const stream_case &stream : cases) {
            benchmark::RegisterBenchmark(
                (std::string("encode/") + name_of(which) + "/" + stream.name).c_str(), encode, stream,
                which)
                ->Unit(benchmark::kMillisecond);
        }
    }
    // Behind all that have counters: the first row's are those of every row of comma-separated values.
    for (const level which : supported_levels()) {
        benchmark::RegisterBenchmark((std::string("init/") + name_of(which)).c_str(), init, cases[0],
                                     which)
            ->Unit(benchmark::kMicrosecond);
    }
    return 0;
}();

} // namespace
