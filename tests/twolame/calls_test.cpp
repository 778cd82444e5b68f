// The calls of the interface, as a program makes them.
#include "host/sanitizer.hpp"
#include "vela_enc_mp1a/encoder.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <twolame.h>
#include <vector>

// Allocations of the whole program.
static long allocations = 0;
#if !HAS_OWN_MALLOC
extern "C" void *__libc_malloc(std::size_t size);
extern "C" void *__libc_realloc(void *old, std::size_t size);
extern "C" __attribute__((visibility("default"))) void *malloc(std::size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
extern "C" __attribute__((visibility("default"))) void *realloc(void *old, std::size_t size) {
    ++allocations;
    return __libc_realloc(old, size);
}
#endif

namespace {

using bytes = std::vector<unsigned char>;

struct closing {
    void operator()(twolame_options *handle) const { twolame_close(&handle); }
};
using handle = std::unique_ptr<twolame_options, closing>;

handle opened() {
    return handle(twolame_init());
}

/// Interleaved pairs.
std::vector<short> noise(int instants) {
    std::vector<short> pcm(2 * static_cast<std::size_t>(instants));
    std::mt19937 random(5);
    std::ranges::generate(pcm, [&] { return static_cast<short>(random() % 20000 - 10000); });
    return pcm;
}

/// What the library itself makes of floats.
bytes encoded(const std::vector<float> &pcm, mpeg_a_settings settings, int rate = 44100) {
    struct output : bufstream {
        bytes all;
        unsigned char block[2048];
    } out{};
    out.request = [](bufstream *self, std::uint32_t) -> std::uint8_t * {
        return static_cast<output *>(self)->block;
    };
    out.commit = [](bufstream *self, std::uint32_t n) {
        auto &own = *static_cast<output *>(self);
        own.all.insert(own.all.end(), own.block, own.block + n);
        return n;
    };
    out.chunk_size = [](bufstream *) { return std::uint32_t{sizeof output::block}; };
    out.auxinfo = [](bufstream *, std::uint32_t, std::uint32_t, const void *, std::uint32_t) {
        return 0U;
    };
    mpeg_a_encoder *const encoder = mpegOutAudioNew(nullptr, &settings, 0, 4, rate);
    mpegOutAudioInit(encoder, &out);
    mpegOutAudioPutBytes(encoder, pcm.data(), static_cast<std::uint32_t>(4 * pcm.size()));
    mpegOutAudioDone(encoder, 0);
    mpegOutAudioFree(encoder);
    return out.all;
}

/// The interface's defaults: stereo at 192 kbit/s, the tuned model, an original.
mpeg_a_settings defaults() {
    mpeg_a_settings settings{};
    mpegOutAudioDefaults(&settings, MPEG_A_PRESET_NONE);
    settings.audio_bitrate = 10;
    settings.audio_model = MPEG_A_MODEL_TUNED;
    settings.original = 1;
    return settings;
}

std::vector<float> floats(const std::vector<short> &pcm) {
    std::vector<float> values;
    for (const short each : pcm)
        values.push_back(static_cast<float>(each) / 32768);
    return values;
}

TEST(calls, get_returns_what_set_took_and_the_defaults_before) {
    const handle h = opened();
    const auto check = [&](const char *name, auto set, auto get, auto before, auto value, auto wrong) {
        EXPECT_EQ(get(h.get()), before) << name;
        EXPECT_EQ(set(h.get(), value), 0) << name;
        EXPECT_EQ(get(h.get()), value) << name;
        if (wrong != value) {
            EXPECT_NE(set(h.get(), wrong), 0) << name;
            EXPECT_EQ(get(h.get()), value) << name;
        }
        EXPECT_NE(set(nullptr, value), 0) << name;
        EXPECT_EQ(get(nullptr), decltype(value){}) << name;
    };
#define CHECK_PAIR(NAME, BEFORE, VALUE, WRONG)                                                         \
    check(#NAME, twolame_set_##NAME, twolame_get_##NAME, BEFORE, VALUE, WRONG)
    // Values that no check refuses stand for the wrong ones, too.
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    CHECK_PAIR(verbosity, 1, 10, 11);
    CHECK_PAIR(mode, TWOLAME_AUTO_MODE, TWOLAME_MONO, TWOLAME_NOT_SET);
    CHECK_PAIR(version, TWOLAME_MPEG1, TWOLAME_MPEG2, TWOLAME_MPEG2);
    CHECK_PAIR(psymodel, 3, -1, -1);
    CHECK_PAIR(num_channels, 2, 1, 3);
    CHECK_PAIR(scale, 0.0F, 2.5F, -1.0F);
    CHECK_PAIR(scale_left, 0.0F, 0.5F, nan);
    CHECK_PAIR(scale_right, 0.0F, 0.25F, nan);
    CHECK_PAIR(in_samplerate, 44100, 48000, -1);
    CHECK_PAIR(out_samplerate, 44100, 32000, -1);
    CHECK_PAIR(bitrate, 192, 384, 384);
    CHECK_PAIR(brate, 384, 64, 64);
    CHECK_PAIR(padding, TWOLAME_PAD_NO, TWOLAME_PAD_ALL, static_cast<TWOLAME_Padding>(1));
    CHECK_PAIR(energy_levels, 0, 1, 1);
    CHECK_PAIR(num_ancillary_bits, 0, 16, -1);
    CHECK_PAIR(emphasis, TWOLAME_EMPHASIS_N, TWOLAME_EMPHASIS_C, static_cast<TWOLAME_Emphasis>(2));
    CHECK_PAIR(error_protection, 0, 1, 1);
    CHECK_PAIR(copyright, 0, 1, 1);
    CHECK_PAIR(original, 1, 0, 0);
    CHECK_PAIR(extension, 0, 1, 1);
    CHECK_PAIR(VBR, 0, 1, 1);
    CHECK_PAIR(VBR_level, 5.0F, -2.5F, nan);
    CHECK_PAIR(VBR_q, -2.5F, 3.0F, nan);
    CHECK_PAIR(ATH_level, 0.0F, 1.5F, nan);
    CHECK_PAIR(VBR_max_bitrate_kbps, 0, 256, 256);
    CHECK_PAIR(quick_mode, 0, 1, 1);
    CHECK_PAIR(quick_count, 10, 3, 3);
    CHECK_PAIR(DAB, 0, 1, 1);
    CHECK_PAIR(DAB_xpad_length, 0, 6, 6);
    CHECK_PAIR(DAB_crc_length, 2, 4, 4);
#undef CHECK_PAIR
}

// What this encoder does not have is an error with a line, which verbosity 0 silences; the rest goes on.
TEST(calls, init_params_refuses_what_cannot_be_encoded) {
    const struct {
        int (*set)(twolame_options *);
        const char *words; ///< none: it is encoded
    } rows[] = {
        {[](twolame_options *) { return 0; }, ""},
        {[](twolame_options *h) { return twolame_set_version(h, TWOLAME_MPEG2); }, "MPEG-2"},
        {[](twolame_options *h) {
             return twolame_set_in_samplerate(h, 24000) + twolame_set_out_samplerate(h, 24000);
         },
         "MPEG-2"},
        {[](twolame_options *h) {
             return twolame_set_in_samplerate(h, 96000) + twolame_set_out_samplerate(h, 96000);
         },
         "32000"},
        {[](twolame_options *h) {
             return twolame_set_in_samplerate(h, 0) + twolame_set_out_samplerate(h, 0);
         },
         "32000"},
        {[](twolame_options *h) { return twolame_set_in_samplerate(h, 48000); }, "same sampling rate"},
        {[](twolame_options *h) {
             return twolame_set_in_samplerate(h, 48000) + twolame_set_out_samplerate(h, 0);
         },
         ""},
        {[](twolame_options *h) { return twolame_set_VBR(h, 1); }, "variable"},
        {[](twolame_options *h) { return twolame_set_energy_levels(h, 1); }, "energy"},
        {[](twolame_options *h) { return twolame_set_num_ancillary_bits(h, 8); }, "ancillary"},
        {[](twolame_options *h) { return twolame_set_DAB(h, 1); }, "DAB"},
        {[](twolame_options *h) { return twolame_set_freeformat(h, 1); }, "free format"},
        {[](twolame_options *h) { return twolame_set_bitrate(h, 100); }, "96, 112"},
        {[](twolame_options *h) { return twolame_set_bitrate(h, 0); }, "32, 48"},
        {[](twolame_options *h) { return twolame_set_bitrate(h, 48); }, "48 kbit/s is too little"},
        {[](twolame_options *h) {
             return twolame_set_bitrate(h, 48) + twolame_set_mode(h, TWOLAME_MONO);
         },
         ""},
        {[](twolame_options *h) { return twolame_set_bitrate(h, 32) + twolame_set_num_channels(h, 1); },
         ""},
    };
    for (const auto &[set, words] : rows)
        for (const int verbosity : {0, 1}) {
            const handle h = opened();
            EXPECT_EQ(set(h.get()), 0) << words;
            twolame_set_verbosity(h.get(), verbosity);
            testing::internal::CaptureStderr();
            const int result = twolame_init_params(h.get());
            const std::string said = testing::internal::GetCapturedStderr();
            const bool refused = *words != '\0';
            EXPECT_EQ(result < 0, refused) << words;
            EXPECT_EQ(result == 0, !refused) << words;
            EXPECT_EQ(std::ranges::count(said, '\n'), refused && verbosity > 0) << said;
            EXPECT_EQ(said.find(words) == std::string::npos, refused && verbosity == 0) << said;
        }
}

TEST(calls, every_form_of_the_samples_makes_the_librarys_own_stream) {
    const std::vector<short> pcm = noise(5000);
    const std::vector<float> values = floats(pcm);
    std::vector<short> left, right;
    std::vector<float> left_values, right_values;
    for (std::size_t i = 0; i < pcm.size(); i += 2) {
        left.push_back(pcm[i]), right.push_back(pcm[i + 1]);
        left_values.push_back(values[i]), right_values.push_back(values[i + 1]);
    }
    enum form { pairs, planes, float_pairs, float_planes };
    for (const form how : {pairs, planes, float_pairs, float_planes})
        for (const int channels_in : {1, 2})
            for (const TWOLAME_MPEG_mode mode :
                 {TWOLAME_STEREO, TWOLAME_JOINT_STEREO, TWOLAME_DUAL_CHANNEL, TWOLAME_MONO})
                for (const bool scaled : {false, true}) {
                    const handle h = opened();
                    twolame_set_mode(h.get(), mode);
                    twolame_set_num_channels(h.get(), channels_in);
                    if (scaled) {
                        twolame_set_scale(h.get(), 2);
                        twolame_set_scale_left(h.get(), 0.25F);
                        twolame_set_scale_right(h.get(), 0.125F);
                    }
                    ASSERT_EQ(twolame_init_params(h.get()), 0);
                    const float gain[] = {scaled ? 0.5F : 1, scaled ? 0.25F : 1};
                    // One channel comes interleaved with nothing.
                    const auto *in = channels_in == 1 ? left.data() : pcm.data();
                    const auto *in_values = channels_in == 1 ? left_values.data() : values.data();
                    const std::size_t step = static_cast<std::size_t>(channels_in);
                    bytes out(30000);
                    int filled = 0;
                    for (int at = 0, size = 1; at < 5000;
                         at += size, size = std::min(7 * size, 5000 - at)) {
                        const auto i = static_cast<std::size_t>(at);
                        const short *const second = channels_in == 1 ? nullptr : &right[i];
                        const float *const second_value = channels_in == 1 ? nullptr : &right_values[i];
                        unsigned char *const to = out.data() + filled;
                        const int room = static_cast<int>(out.size()) - filled;
                        const int got =
                            how == pairs ? twolame_encode_buffer_interleaved(h.get(), in + step * i,
                                                                             size, to, room)
                            : how == planes
                                ? twolame_encode_buffer(h.get(), &left[i], second, size, to, room)
                            : how == float_pairs
                                ? twolame_encode_buffer_float32_interleaved(
                                    h.get(), in_values + step * i, size, to, room)
                                : twolame_encode_buffer_float32(h.get(), &left_values[i], second_value,
                                                                size, to, room);
                        ASSERT_GE(got, 0);
                        filled += got;
                    }
                    filled += twolame_encode_flush(h.get(), out.data() + filled,
                                                   static_cast<int>(out.size()) - filled);
                    out.resize(static_cast<std::size_t>(filled));
                    std::vector<float> sound;
                    for (std::size_t i = 0; i < left.size(); ++i) {
                        const float first = gain[0] * left_values[i];
                        const float second =
                            gain[1] * (channels_in == 1 ? left_values : right_values)[i];
                        if (mode == TWOLAME_MONO)
                            sound.push_back(channels_in == 1 ? first : (first + second) / 2);
                        else
                            sound.insert(sound.end(), {first, second});
                    }
                    mpeg_a_settings settings = defaults();
                    settings.audio_mode = mode;
                    EXPECT_EQ(out, encoded(sound, settings)) << how << channels_in << mode << scaled;
                }
}

// A room that is too small loses nothing, and no order of calls does harm.
TEST(calls, nothing_is_lost_and_nothing_breaks_whatever_the_order_of_calls) {
    const std::vector<short> pcm = noise(4 * 1152 + 100);
    const bytes whole = encoded(floats(pcm), defaults());
    const int frame = 627; // 144000 * 192 / 44100 is 626.9
    unsigned char room[8192];
    const handle h = opened();
    const auto put = [&](int from, int count, int size) {
        return twolame_encode_buffer_interleaved(h.get(), &pcm[2 * static_cast<std::size_t>(from)],
                                                 count, room, size);
    };
    EXPECT_LT(put(0, 1152, 8192), 0) << "before twolame_init_params()";
    EXPECT_EQ(twolame_encode_flush(h.get(), room, 8192), 0) << "there is nothing";
    ASSERT_EQ(twolame_init_params(h.get()), 0);
    EXPECT_EQ(twolame_get_framelength(h.get()), frame);
    EXPECT_STREQ(twolame_get_mode_name(h.get()), "stereo");
    EXPECT_EQ(put(0, 0, 0), 0);
    EXPECT_EQ(twolame_encode_buffer_interleaved(h.get(), nullptr, 0, nullptr, 0), 0);
    EXPECT_EQ(twolame_encode_buffer_interleaved(h.get(), nullptr, 9, room, 8192), -1);
    EXPECT_EQ(twolame_encode_buffer(h.get(), pcm.data(), nullptr, 9, room, 8192), -1);
    EXPECT_EQ(put(0, -1, 8192), -1);
    EXPECT_EQ(put(0, 1152, 100), -1);
    EXPECT_EQ(put(1152, 2000, 1251), -1);
    EXPECT_EQ(twolame_encode_buffer_interleaved(h.get(), nullptr, 0, nullptr, 8192), -1);
    bytes out;
    const auto keep = [&](int count) {
        ASSERT_GE(count, 0);
        out.insert(out.end(), room, room + count);
    };
    keep(put(3152, 4 * 1152 + 100 - 3152, 8192));
    EXPECT_EQ(twolame_encode_flush(h.get(), room, 625), -1);
    keep(twolame_encode_flush(h.get(), room, 627));
    EXPECT_EQ(out, whole);
    EXPECT_EQ(twolame_encode_flush(h.get(), room, 8192), 0) << "there is nothing left";
    keep(put(0, 1152, 8192)); // the stream goes on
    EXPECT_EQ(out.size(), whole.size() + 627);
    EXPECT_EQ(twolame_encode_flush(h.get(), room, 8192), 0);

    ASSERT_EQ(twolame_init_params(h.get()), 0); // another stream
    out.clear();
    const long before = allocations;
    for (int at = 0; at < 4 * 1152; at += 1152) {
        const int count = put(at, 1152, 8192);
        const long after = allocations;
        EXPECT_EQ(after, before) << "memory was taken at sample " << at;
        out.insert(out.end(), room, room + count);
    }
    EXPECT_TRUE(std::equal(out.begin(), out.end(), whole.begin()));

    twolame_options *never = twolame_init();
    twolame_close(&never);
    EXPECT_EQ(never, nullptr);
    twolame_close(&never);
    twolame_close(nullptr);
    EXPECT_LT(twolame_init_params(nullptr), 0);
    EXPECT_LT(twolame_encode_flush(nullptr, room, 8192), 0);
    EXPECT_LT(twolame_encode_buffer(nullptr, pcm.data(), pcm.data(), 9, room, 8192), 0);
    EXPECT_LT(twolame_encode_buffer_float32_interleaved(nullptr, nullptr, 9, room, 8192), 0);
    EXPECT_LT(twolame_set_freeformat(nullptr, 0), 0);
    EXPECT_LT(twolame_set_DAB_scf_crc_length(nullptr), 0);
    EXPECT_LT(twolame_set_DAB_scf_crc(nullptr, room, 9), 0);
    EXPECT_EQ(twolame_get_framelength(nullptr), 0);
    twolame_print_config(nullptr);
}

// The header's bits and the model, by the interface's names.
TEST(calls, settings_reach_the_stream) {
    const std::vector<short> pcm = noise(3 * 1152);
    const struct {
        int (*set)(twolame_options *);
        void (*expect)(mpeg_a_settings &);
        int rate = 44100;
        const char *model = "";
    } rows[] = {
        {[](twolame_options *h) { return twolame_set_emphasis(h, TWOLAME_EMPHASIS_5); },
         [](mpeg_a_settings &s) { s.emphasis = 1; }},
        {[](twolame_options *h) { return twolame_set_emphasis(h, TWOLAME_EMPHASIS_C); },
         [](mpeg_a_settings &s) { s.emphasis = 3; }},
        {[](twolame_options *h) { return twolame_set_error_protection(h, 1); },
         [](mpeg_a_settings &s) { s.error_protection = 1; }},
        {[](twolame_options *h) { return twolame_set_copyright(h, 1); },
         [](mpeg_a_settings &s) { s.copyright = 1; }},
        {[](twolame_options *h) { return twolame_set_original(h, 0); },
         [](mpeg_a_settings &s) { s.original = 0; }},
        {[](twolame_options *h) { return twolame_set_extension(h, 1); },
         [](mpeg_a_settings &s) { s.extension = 1; }},
        {[](twolame_options *h) { return twolame_set_padding(h, TWOLAME_PAD_ALL); },
         [](mpeg_a_settings &) {}},
        {[](twolame_options *h) { return twolame_set_quick_mode(h, 1) + twolame_set_ATH_level(h, 9); },
         [](mpeg_a_settings &) {}},
        {[](twolame_options *h) { return twolame_set_psymodel(h, 1); },
         [](mpeg_a_settings &s) { s.audio_model = 0; }},
        {[](twolame_options *h) { return twolame_set_psymodel(h, 2); },
         [](mpeg_a_settings &s) { s.audio_model = 0; }},
        {[](twolame_options *h) { return twolame_set_psymodel(h, 0); }, [](mpeg_a_settings &) {}},
        {[](twolame_options *h) { return twolame_set_psymodel(h, 2); }, [](mpeg_a_settings &) {}, 44100,
         "tuned"},
        {[](twolame_options *) { return 0; }, [](mpeg_a_settings &s) { s.audio_model = 0; }, 44100,
         "standard"},
        {[](twolame_options *h) {
             return twolame_set_in_samplerate(h, 32000) + twolame_set_out_samplerate(h, 32000);
         },
         [](mpeg_a_settings &) {}, 32000},
    };
    for (const auto &row : rows) {
        ::setenv("VELA_MODEL", row.model, 1);
        const handle h = opened();
        EXPECT_EQ(row.set(h.get()), 0);
        ASSERT_EQ(twolame_init_params(h.get()), 0);
        bytes out(8192);
        const int count =
            twolame_encode_buffer_interleaved(h.get(), pcm.data(), 3 * 1152, out.data(), 8192);
        ASSERT_GT(count, 0);
        out.resize(static_cast<std::size_t>(count));
        mpeg_a_settings settings = defaults();
        row.expect(settings);
        EXPECT_EQ(out, encoded(floats(pcm), settings, row.rate)) << &row - rows;
    }
    ::setenv("VELA_MODEL", "Tuned", 1);
    EXPECT_LT(twolame_init_params(opened().get()), 0);
    ::unsetenv("VELA_MODEL");
}

} // namespace
