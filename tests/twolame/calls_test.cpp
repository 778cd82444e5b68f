// The calls of the interface, as a program makes them.
#include "host/fake_output.hpp"
#include "host/sanitizer.hpp"
#include "vela_enc_mp1a/encoder.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <twolame.h>
#include <type_traits>
#include <vector>

// How many more allocations of the whole program succeed.
static long allocations_left = LONG_MAX;
#if !HAS_OWN_MALLOC
extern "C" void *__libc_malloc(std::size_t size);
extern "C" __attribute__((visibility("default"))) void *malloc(std::size_t size) {
    return allocations_left-- > 0 ? __libc_malloc(size) : nullptr;
}
#endif

namespace {

using bytes = std::vector<unsigned char>;

struct closing {
    void operator()(twolame_options *handle) const { twolame_close(&handle); }
};
using handle = std::unique_ptr<twolame_options, closing>;

/// A call that sets something.
using setter = std::function<int(twolame_options *)>;

template <class Value>
setter with(int (*set)(twolame_options *, Value), std::type_identity_t<Value> value) {
    return [=](twolame_options *h) { return set(h, value); };
}

handle opened(const std::vector<setter> &setters = {}) {
    handle h(twolame_init());
    for (const setter &set : setters)
        EXPECT_EQ(set(h.get()), 0);
    return h;
}

/// What the call returns when only so many allocations succeed.
int with_memory_for(long allocations, const auto &call) {
    allocations_left = allocations;
    const int result = call();
    allocations_left = LONG_MAX;
    return result;
}

std::vector<short> noise(int samples, unsigned seed) {
    std::vector<short> pcm(static_cast<std::size_t>(samples));
    std::mt19937 random(seed);
    std::ranges::generate(pcm, [&] { return static_cast<short>(random() % 20000 - 10000); });
    return pcm;
}

/// What the library itself makes of floats.
bytes encoded(const std::vector<float> &pcm, mpeg_a_settings settings, int rate = 44100) {
    mp1a_test::fake_output out;
    mpeg_a_encoder *const encoder = mpegOutAudioNew(nullptr, &settings, 0, 4, rate);
    mpegOutAudioInit(encoder, &out);
    mpegOutAudioPutBytes(encoder, pcm.data(), static_cast<std::uint32_t>(4 * pcm.size()));
    mpegOutAudioDone(encoder, 0);
    mpegOutAudioFree(encoder);
    return out.stream;
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

/// A stream by two of the interface's functions: a part of the first frame interleaved, all the rest as planes.
/// Without a right channel there is one.
template <class Sample>
bytes encoded(twolame_options *h, const std::vector<Sample> &left, const std::vector<Sample> &right,
              int (*pairs)(twolame_options *, const Sample *, int, unsigned char *, int),
              int (*planes)(twolame_options *, const Sample *, const Sample *, int, unsigned char *,
                            int)) {
    constexpr int begin = 1001;
    std::vector<Sample> first;
    for (std::size_t i = 0; i < begin; ++i) {
        first.push_back(left[i]);
        if (!right.empty()) first.push_back(right[i]);
    }
    bytes out(30000);
    EXPECT_EQ(pairs(h, first.data(), begin, out.data(), 30000), 0);
    const int got = planes(h, &left[begin], right.empty() ? nullptr : &right[begin],
                           static_cast<int>(left.size()) - begin, out.data(), 30000);
    EXPECT_GE(got, 0);
    out.resize(static_cast<std::size_t>(got)
               + static_cast<std::size_t>(twolame_encode_flush(h, out.data() + got, 30000 - got)));
    return out;
}

TEST(calls, get_returns_what_set_took_and_the_defaults_before) {
    const handle h = opened();
    const auto check = [&](const char *name, auto set, auto get, auto before, auto value, auto wrong) {
        EXPECT_EQ(get(h.get()), before) << name;
        EXPECT_EQ(set(h.get(), value), 0) << name;
        EXPECT_EQ(get(h.get()), value) << name;
        EXPECT_EQ(set(h.get(), wrong), -1) << name;
        EXPECT_EQ(get(h.get()), value) << name;
        EXPECT_EQ(set(nullptr, value), -1) << name;
        EXPECT_EQ(get(nullptr), decltype(value){}) << name;
    };
#define CHECK_PAIR(NAME, BEFORE, VALUE, WRONG)                                                         \
    check(#NAME, twolame_set_##NAME, twolame_get_##NAME, BEFORE, VALUE, WRONG)
    // Only those that are not right whatever the value is.
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    CHECK_PAIR(verbosity, 1, 10, 11);
    CHECK_PAIR(mode, TWOLAME_AUTO_MODE, TWOLAME_MONO, TWOLAME_NOT_SET);
    CHECK_PAIR(num_channels, 2, 1, 3);
    CHECK_PAIR(scale, 0.0F, 2.5F, -1.0F);
    CHECK_PAIR(scale_left, 0.0F, 0.5F, nan);
    CHECK_PAIR(scale_right, 0.0F, 0.25F, nan);
    CHECK_PAIR(in_samplerate, 44100, 48000, -1);
    CHECK_PAIR(out_samplerate, 44100, 32000, -1);
    CHECK_PAIR(num_ancillary_bits, 0, 16, -1);
    CHECK_PAIR(emphasis, TWOLAME_EMPHASIS_N, TWOLAME_EMPHASIS_C, static_cast<TWOLAME_Emphasis>(2));
    CHECK_PAIR(VBR_level, 5.0F, -2.5F, nan);
    CHECK_PAIR(VBR_q, -2.5F, 3.0F, nan);
    CHECK_PAIR(ATH_level, 0.0F, 1.5F, nan);
#undef CHECK_PAIR
    // Of those that take any value what the header calls their defaults.
    const handle fresh = opened();
    std::vector<int> got;
    for (int (*get)(twolame_options *) :
         {twolame_get_psymodel, twolame_get_brate, twolame_get_energy_levels,
          twolame_get_error_protection, twolame_get_copyright, twolame_get_extension, twolame_get_VBR,
          twolame_get_VBR_max_bitrate_kbps, twolame_get_quick_mode, twolame_get_quick_count,
          twolame_get_DAB, twolame_get_DAB_xpad_length, twolame_get_DAB_crc_length})
        got.push_back(get(fresh.get()));
    EXPECT_EQ(got, (std::vector<int>{3, 192, 0, 0, 0, 0, 0, 0, 0, 10, 0, 0, 2}));
    EXPECT_EQ(twolame_get_version(fresh.get()), TWOLAME_MPEG1);
    EXPECT_EQ(twolame_get_padding(fresh.get()), TWOLAME_PAD_NO);
}

// What this encoder does not have is an error with a line, which verbosity 0 silences; the rest goes on.
TEST(calls, init_params_refuses_what_cannot_be_encoded) {
    const auto rates = [](int in, int out) {
        return std::vector{with(twolame_set_in_samplerate, in), with(twolame_set_out_samplerate, out)};
    };
    const struct {
        std::vector<setter> setters;
        const char *words; ///< none: it is encoded
    } rows[] = {
        {{}, ""},
        {{with(twolame_set_version, TWOLAME_MPEG2)}, "MPEG-2"},
        {rates(24000, 24000), "MPEG-2"},
        {rates(96000, 96000), "32000"},
        {rates(0, 0), "32000"},
        {rates(48000, 44100), "same sampling rate"},
        {rates(48000, 0), ""},
        {{with(twolame_set_VBR, 1)}, "variable"},
        {{with(twolame_set_energy_levels, 1)}, "energy"},
        {{with(twolame_set_num_ancillary_bits, 8)}, "ancillary"},
        {{with(twolame_set_DAB, 1)}, "DAB"},
        {{with(twolame_set_freeformat, 1)}, "free format"},
        {{with(twolame_set_bitrate, 100)}, "96, 112"},
        {{with(twolame_set_bitrate, 0)}, "32, 48"},
        {{with(twolame_set_bitrate, 48)}, "48 kbit/s is too little"},
        {{with(twolame_set_bitrate, 48), with(twolame_set_mode, TWOLAME_MONO)}, ""},
        {{with(twolame_set_bitrate, 32), with(twolame_set_num_channels, 1)}, ""},
    };
    for (const auto &[setters, words] : rows)
        for (const int verbosity : {0, 1}) {
            const handle h = opened(setters);
            twolame_set_verbosity(h.get(), verbosity);
            testing::internal::CaptureStderr();
            const int result = twolame_init_params(h.get());
            const std::string said = testing::internal::GetCapturedStderr();
            const bool refused = *words != '\0';
            EXPECT_EQ(result, refused ? -1 : 0) << words;
            EXPECT_EQ(std::ranges::count(said, '\n'), refused && verbosity > 0) << said;
            EXPECT_EQ(said.find(words) == std::string::npos, refused && verbosity == 0) << said;
        }
}

// The header's bits, the model, channels and gains, by the interface's names.
TEST(calls, settings_reach_the_stream_in_every_form_of_the_samples) {
    const std::vector<short> left = noise(5000, 5), right = noise(5000, 6);
    const std::vector<float> left_values = floats(left), right_values = floats(right);
    const std::vector<setter> scaled{with(twolame_set_scale, 2), with(twolame_set_scale_left, 0.25F),
                                     with(twolame_set_scale_right, 0.125F)};
    using record = mpeg_a_settings;
    const struct {
        std::vector<setter> setters;
        std::int32_t record::*field = nullptr; ///< that differs from the defaults
        std::int32_t value = 0;
        const char *word = ""; ///< of VELA_MODEL
    } rows[] = {
        {{with(twolame_set_mode, TWOLAME_STEREO)}, &record::audio_mode, 0},
        {{with(twolame_set_mode, TWOLAME_JOINT_STEREO)}, &record::audio_mode, 1},
        {{with(twolame_set_mode, TWOLAME_DUAL_CHANNEL)}, &record::audio_mode, 2},
        {{with(twolame_set_mode, TWOLAME_MONO)}, &record::audio_mode, 3},
        {scaled},
        {{with(twolame_set_scale, 0.5F), with(twolame_set_mode, TWOLAME_MONO)}, &record::audio_mode, 3},
        {{with(twolame_set_emphasis, TWOLAME_EMPHASIS_5)}, &record::emphasis, 1},
        {{with(twolame_set_emphasis, TWOLAME_EMPHASIS_C)}, &record::emphasis, 3},
        {{with(twolame_set_error_protection, 1)}, &record::error_protection, 1},
        {{with(twolame_set_copyright, 1)}, &record::copyright, 1},
        {{with(twolame_set_original, 0)}, &record::original, 0},
        {{with(twolame_set_extension, 1)}, &record::extension, 1},
        {{with(twolame_set_padding, TWOLAME_PAD_ALL), with(twolame_set_quick_mode, 1),
          with(twolame_set_ATH_level, 9), with(twolame_set_scale, 0)}},
        {{with(twolame_set_psymodel, 0)}},
        {{with(twolame_set_psymodel, 1)}, &record::audio_model, MPEG_A_MODEL_STANDARD},
        {{with(twolame_set_psymodel, 2)}, &record::audio_model, MPEG_A_MODEL_STANDARD},
        {{with(twolame_set_psymodel, 2)}, nullptr, 0, "tuned"},
        {{}, &record::audio_model, MPEG_A_MODEL_STANDARD, "standard"},
        {{with(twolame_set_in_samplerate, 32000), with(twolame_set_out_samplerate, 0)}},
    };
    for (const auto &row : rows)
        for (const bool one : {false, true}) {
            ::setenv("VELA_MODEL", row.word, 1);
            const handle h = opened(row.setters);
            twolame_set_num_channels(h.get(), one ? 1 : 2);
            const auto gain = [&](auto own) {
                const float all = twolame_get_scale(h.get()), part = own(h.get());
                return (all > 0 ? all : 1) * (part > 0 ? part : 1);
            };
            mpeg_a_settings settings = defaults();
            if (one) settings.audio_mode = MPEG_A_MODE_MONO;
            if (row.field != nullptr) settings.*row.field = row.value;
            std::vector<float> sound;
            for (std::size_t i = 0; i < left.size(); ++i) {
                const float first = gain(twolame_get_scale_left) * left_values[i];
                const float second =
                    gain(twolame_get_scale_right) * (one ? left_values : right_values)[i];
                if (settings.audio_mode == MPEG_A_MODE_MONO)
                    sound.push_back(one ? first : (first + second) / 2);
                else
                    sound.insert(sound.end(), {first, second});
            }
            const bytes expected = encoded(sound, settings, twolame_get_in_samplerate(h.get()));
            ASSERT_EQ(twolame_init_params(h.get()), 0);
            EXPECT_EQ(expected, encoded(h.get(), left, one ? std::vector<short>{} : right,
                                        twolame_encode_buffer_interleaved, twolame_encode_buffer))
                << &row - rows << one;
            ASSERT_EQ(twolame_init_params(h.get()), 0);
            EXPECT_EQ(expected,
                      encoded(h.get(), left_values, one ? std::vector<float>{} : right_values,
                              twolame_encode_buffer_float32_interleaved, twolame_encode_buffer_float32))
                << &row - rows << one;
        }
    ::setenv("VELA_MODEL", "Tuned", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(twolame_init_params(opened().get()), -1);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("standard or tuned"), std::string::npos);
    ::unsetenv("VELA_MODEL");
}

// A room that is too small loses nothing, and no order of calls does harm.
TEST(calls, nothing_is_lost_and_nothing_breaks_whatever_the_order_of_calls) {
    const std::vector<short> pcm = noise(2 * (4 * 1152 + 100), 5);
    const bytes whole = encoded(floats(pcm), defaults());
    const int frame = 627; // 144000 * 192 / 44100 is 626.9
    unsigned char room[8192];
    const handle h = opened();
    const auto put = [&](int from, int count, int size) {
        return twolame_encode_buffer_interleaved(h.get(), &pcm[2 * static_cast<std::size_t>(from)],
                                                 count, room, size);
    };
    EXPECT_EQ(put(0, 1152, 8192), -1) << "before twolame_init_params()";
    EXPECT_EQ(twolame_encode_flush(h.get(), room, 8192), 0) << "there is nothing";
    ASSERT_EQ(twolame_init_params(h.get()), 0);
    EXPECT_EQ(twolame_get_framelength(h.get()), frame);
    EXPECT_STREQ(twolame_get_version_name(h.get()), "MPEG-1");
    twolame_set_error_protection(h.get(), 1);
    testing::internal::CaptureStderr();
    twolame_print_config(h.get());
    EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with(
        ": MPEG-1 Layer II, stereo, 44100 Hz, 192 kbit/s, CRC\n"));
    twolame_set_error_protection(h.get(), 0);
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
    for (int at = 0; at < 4 * 1152; at += 1152)
        keep(with_memory_for(0, [&] { return put(at, 1152, 8192); }));
    EXPECT_TRUE(std::equal(out.begin(), out.end(), whole.begin()));

    twolame_options *never = twolame_init();
    twolame_close(&never);
    EXPECT_EQ(never, nullptr);
    twolame_close(&never);
    twolame_close(nullptr);
    EXPECT_EQ(twolame_init_params(nullptr), -1);
    EXPECT_EQ(twolame_encode_flush(nullptr, room, 8192), -1);
    EXPECT_EQ(twolame_encode_buffer(nullptr, pcm.data(), pcm.data(), 9, room, 8192), -1);
    EXPECT_EQ(twolame_encode_buffer_float32_interleaved(nullptr, nullptr, 9, room, 8192), -1);
    EXPECT_EQ(twolame_set_freeformat(nullptr, 0), -1);
    EXPECT_EQ(twolame_set_DAB_scf_crc_length(nullptr), -1);
    EXPECT_EQ(twolame_set_DAB_scf_crc(nullptr, room, 9), -1);
    EXPECT_EQ(twolame_get_framelength(nullptr), 0);
    EXPECT_EQ(twolame_get_framelength(opened({with(twolame_set_bitrate, 100)}).get()), 0);
    twolame_print_config(nullptr);
}

} // namespace
