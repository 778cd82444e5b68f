// The element between two pads of the test's: its stamps, and what events do to it.
#include "host/sanitizer.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <dlfcn.h>
#include <gst/check/gstharness.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>

// Memory that is out for the library alone: for GLib itself that is the end. A sanitizer brings its own malloc.
static bool memory_is_out = false;
#if HAS_OWN_MALLOC
constexpr bool memory_can_be_out = false;
#else
constexpr bool memory_can_be_out = true;
extern "C" void *__libc_malloc(std::size_t size);
extern "C" __attribute__((visibility("default"))) void *malloc(std::size_t size) {
    Dl_info caller;
    if (memory_is_out && dladdr(__builtin_return_address(0), &caller) != 0
        && std::strstr(caller.dli_fname, "libvela_enc_mp1a") != nullptr)
        return nullptr;
    return __libc_malloc(size);
}
#endif

namespace {

using bytes = std::vector<std::uint8_t>;

template <class T, auto release>
using owned = std::unique_ptr<T, decltype([](T *object) { release(object); })>;

bytes noise(std::size_t size) {
    bytes pcm(size);
    std::generate(pcm.begin(), pcm.end(), std::mt19937(1));
    return pcm;
}

GstCaps *s16(int rate, int channels) {
    return gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, "S16LE", "layout", G_TYPE_STRING,
                               "interleaved", "rate", G_TYPE_INT, rate, "channels", G_TYPE_INT,
                               channels, nullptr);
}

struct frame {
    bytes data;
    GstClockTime pts;
    bool discont;
    bool operator==(const frame &) const = default;
};

struct bench {
    owned<GstHarness, gst_harness_teardown> harness;
    std::vector<frame> pulled;

    explicit bench(const std::string &properties, int rate = 48000, int channels = 2) {
        gst_init(nullptr, nullptr);
        harness.reset(gst_harness_new_parse(("velamp2enc name=e " + properties).c_str()));
        gst_harness_set_src_caps(harness.get(), s16(rate, channels));
    }

    GstFlowReturn push(const bytes &pcm, GstClockTime start = 0, GstBufferFlags flag = {}) {
        GstBuffer *const buffer = gst_buffer_new_memdup(pcm.data(), pcm.size());
        GST_BUFFER_PTS(buffer) = start;
        GST_BUFFER_FLAG_SET(buffer, flag);
        return gst_harness_push(harness.get(), buffer);
    }

    /// All that has come out so far.
    const std::vector<frame> &frames() {
        while (const owned<GstBuffer, gst_buffer_unref> buffer{gst_harness_try_pull(harness.get())}) {
            pulled.push_back({bytes(gst_buffer_get_size(buffer.get())), GST_BUFFER_PTS(buffer.get()),
                              GST_BUFFER_IS_DISCONT(buffer.get()) != FALSE});
            gst_buffer_extract(buffer.get(), 0, pulled.back().data.data(), pulled.back().data.size());
        }
        return pulled;
    }
    bytes stream() {
        bytes all;
        for (const frame &one : frames())
            all.insert(all.end(), one.data.begin(), one.data.end());
        return all;
    }

    auto element() {
        return owned<GstElement, gst_object_unref>(gst_bin_get_by_name(GST_BIN(harness->element), "e"));
    }
};

bytes stream_of(const bytes &pcm, int rate = 48000, int channels = 2) {
    bench on("", rate, channels);
    on.push(pcm);
    gst_harness_push_event(on.harness.get(), gst_event_new_eos());
    return on.stream();
}

// A decoder puts a click where the stamps say; its sound ends with the input or, if sooner, the frames.
TEST(element, sound_comes_out_of_a_decoder_at_its_own_time) {
    const struct {
        const char *properties;
        int rate, length, end; ///< of the input, of what is decoded
    } rows[] = {
        {"layer=1", 44100, 90 * 384 + 300, 91 * 384 - 545},
        {"layer=2", 44100, 30 * 1152 + 300, 30 * 1152 + 300},
        {"layer=2", 48000, 31 * 1152, 31 * 1152 - 481},
        {"layer=2 align=true", 48000, 31 * 1152, 31 * 1152},
        {"layer=1 flush-tail=true", 44100, 90 * 384 + 100, 90 * 384 + 100},
    };
    gst_init(nullptr, nullptr);
    if (gst_registry_check_feature_version(gst_registry_get(), "mpg123audiodec", 1, 0, 0) == FALSE)
        GTEST_SKIP() << "needs gst:mpg123audiodec";
    for (const auto &[properties, rate, length, expected_end] : rows) {
        constexpr int click = 31000;
        bytes pcm(static_cast<std::size_t>(2 * length));
        pcm[2 * click + 1] = 0x60;
        bench on(std::string(properties)
                     + " ! mpg123audiodec ! audioconvert ! capsfilter caps=audio/x-raw,format=F32LE",
                 rate, 1);
        on.push(pcm, 7 * GST_SECOND);
        gst_harness_push_event(on.harness.get(), gst_event_new_eos());
        double loudest = 0, when = 0, end = 0;
        for (const frame &decoded : on.frames())
            for (std::size_t i = 0; i < decoded.data.size() / 4; ++i) {
                float value;
                std::memcpy(&value, decoded.data.data() + 4 * i, 4);
                const double now =
                    static_cast<double>(decoded.pts) * rate / 1e9 + static_cast<double>(i);
                end = now + 1;
                if (std::abs(value) <= loudest) continue;
                loudest = std::abs(value);
                when = now;
            }
        EXPECT_GT(loudest, 0.3);
        EXPECT_NEAR(7 * rate + click, when, 0.1) << properties << " at " << rate;
        EXPECT_NEAR(7 * rate + expected_end, end, 0.1) << properties << " at " << rate;
    }
}

// What was pending before comes out or not; what comes after is a stream of its own, at its own time.
TEST(element, events_end_a_stream_where_they_should) {
    const bytes before = noise(12000), after = noise(20000), stream_before = stream_of(before);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    const owned<GstCaps, gst_caps_unref> mono(s16(32000, 1));
    const struct {
        std::vector<GstEvent *> events;
        bool completes;
        int rate = 48000, channels = 2;
    } rows[] = {
        {{gst_event_new_gap(GST_SECOND, GST_SECOND)}, true},
        {{gst_event_new_segment(&segment)}, true},
        {{gst_event_new_caps(mono.get())}, true, 32000, 1},
        {{gst_event_new_flush_start(), gst_event_new_flush_stop(TRUE), gst_event_new_segment(&segment)},
         false},
    };
    for (const auto &[events, completes, rate, channels] : rows) {
        const GstEventType type = GST_EVENT_TYPE(events.front());
        bench on("");
        on.push(before);
        for (GstEvent *const event : events)
            gst_harness_push_event(on.harness.get(), event);
        bytes expected = stream_before;
        if (!completes) expected.resize(2 * 672);
        if (type == GST_EVENT_GAP) {
            EXPECT_EQ(expected, on.stream()) << "the pending frame waits for something";
            GstEventType last{};
            while (const owned<GstEvent, gst_event_unref> out{
                gst_harness_try_pull_event(on.harness.get())})
                last = GST_EVENT_TYPE(out.get());
            EXPECT_EQ(last, type) << "the gap waits for something";
        }
        on.push(after, 80 * GST_MSECOND); // within the tolerance of what was before
        gst_harness_push_event(on.harness.get(), gst_event_new_eos());
        const bytes second = stream_of(after, rate, channels);
        expected.insert(expected.end(), second.begin(), second.end());
        EXPECT_EQ(expected, on.stream()) << gst_event_type_get_name(type);
        for (std::size_t i = 0; i < 2; ++i)
            EXPECT_NEAR(0.08 + static_cast<double>(i * (1152 - 481)) / rate,
                        static_cast<double>(on.frames().at((completes ? 3 : 2) + i).pts) / 1e9, 1e-8)
                << gst_event_type_get_name(type);
    }
}

// Clocks of capture cards jitter; only a jump moves the stamps.
TEST(element, stamps_follow_from_the_number_of_samples_until_the_input_jumps) {
    bench on("");
    const double jumps[] = {0,     5,     -5,    20,      -20,    5,
                            60040, 60000, 60040, 60080.1, 60080.1}; // ms beyond the samples
    const double heard[] = {0, 0, 0, 0, 0, 0, 60040, 60040, 60040, 60080.1, 60080.1};
    for (int i = 0; i < 11; ++i)
        on.push(noise(4 * 1152), static_cast<GstClockTime>(1e9 + i * 24e6 + jumps[i] * 1e6),
                i == 6 ? GST_BUFFER_FLAG_DISCONT : GstBufferFlags{});
    const auto &frames = on.frames();
    ASSERT_EQ(frames.size(), 11U);
    for (std::size_t i = 0; i < frames.size(); ++i) {
        // A frame's first samples came with the buffer before it.
        const std::size_t from = i == 0 ? 0 : i - 1;
        EXPECT_NEAR(1 + 0.024 * static_cast<double>(i) - (i == 0 ? 0 : 481 / 48e3) + heard[from] / 1e3,
                    static_cast<double>(frames[i].pts) / 1e9, 1e-8)
            << i;
    }
    EXPECT_TRUE(frames[7].discont && !frames[8].discont);
    // A frame, and the delay by which its stamp lies before its first sample.
    EXPECT_EQ(gst_util_uint64_scale_ceil(1152 + 481, GST_SECOND, 48000),
              gst_harness_query_latency(on.harness.get()));
}

// What nobody has set, the checksum before all, must not be fixed by that.
TEST(element, properties_saved_in_a_preset_are_what_they_were_set_ones_and_others) {
    const struct {
        const char *name;
        int value, automatic = 0;
    } rows[] = {{"bitrate", 192}, {"mode", 2, -1}, {"layer", 1},      {"preset", 10},
                {"emphasis", 3},  {"crc", 0, -1},  {"copyright", 1},  {"original", 1},
                {"private", 1},   {"align", 1},    {"flush-tail", 1}, {"model", 0x454E5554}};
    g_setenv("XDG_DATA_HOME", (::testing::TempDir() + "velamp2enc_presets").c_str(), TRUE);
    for (const bool are_set : {false, true}) {
        bench saved(""), loaded("");
        for (const auto &[name, value, automatic] : rows)
            if (are_set) g_object_set(saved.element().get(), name, value, nullptr);
        ASSERT_TRUE(gst_preset_save_preset(GST_PRESET(saved.element().get()), "mine"));
        ASSERT_TRUE(gst_preset_load_preset(GST_PRESET(loaded.element().get()), "mine"));
        gst_preset_delete_preset(GST_PRESET(saved.element().get()), "mine");
        for (const auto &[name, value, automatic] : rows) {
            int found = -2;
            g_object_get(loaded.element().get(), name, &found, nullptr);
            EXPECT_EQ(found, are_set ? value : automatic) << name;
        }
    }
}

TEST(element, takes_what_the_settings_can_encode_and_tells_its_bitrate) {
    constexpr guint64 no_mask = 9;
    const struct {
        const char *properties;
        int rate, channels;
        guint64 mask;
        guint bitrate; ///< of the stream's tag, 0: refused
    } rows[] = {
        {"", 48000, 2, no_mask, 224000},
        {"", 32000, 2, 3, 224000},
        {"", 48000, 2, 0, 224000},
        {"", 48000, 2, 0xC, 0}, // centre and low frequencies are to be mixed
        {"layer=1", 48000, 1, no_mask, 192000},
        {"mode=mono", 48000, 2, 3, 0},
        {"mode=joint", 48000, 1, no_mask, 0},
        {"preset=vcd", 48000, 2, 3, 0},
        {"preset=hdv", 48000, 1, no_mask, 0},
        {"preset=dvhs", 48000, 1, no_mask, 128000},
    };
    for (const auto &[properties, rate, channels, mask, bitrate] : rows) {
        bench on(properties, rate, channels);
        GstCaps *const caps = s16(rate, channels);
        if (mask != no_mask) gst_caps_set_simple(caps, "channel-mask", GST_TYPE_BITMASK, mask, nullptr);
        gst_harness_set_src_caps(on.harness.get(), caps);
        on.push(noise(4 * 1152));
        const std::string what = properties + std::to_string(rate) + ' ' + std::to_string(mask);
        EXPECT_EQ(on.frames().empty(), bitrate == 0) << what;
        if (bitrate == 0) continue;
        const owned<GstCaps, gst_caps_unref> made(gst_pad_get_current_caps(on.harness->sinkpad));
        const int layer = *properties == 'l' ? 1 : 2;
        const owned<GstCaps, gst_caps_unref> right(gst_caps_new_simple(
            "audio/mpeg", "mpegversion", G_TYPE_INT, 1, "mpegaudioversion", G_TYPE_INT, 1, "layer",
            G_TYPE_INT, layer, "channels", G_TYPE_INT, channels, "rate", G_TYPE_INT, rate, "parsed",
            G_TYPE_BOOLEAN, TRUE, nullptr));
        EXPECT_TRUE(gst_caps_is_equal(made.get(), right.get())) << what;
        const owned<GstEvent, gst_event_unref> event(
            gst_pad_get_sticky_event(on.harness->sinkpad, GST_EVENT_TAG, 0));
        GstTagList *tags = nullptr;
        gst_event_parse_tag(event.get(), &tags);
        guint told = 0, nominal = 0;
        const char *codec = "";
        gst_tag_list_get_uint(tags, GST_TAG_BITRATE, &told);
        gst_tag_list_get_uint(tags, GST_TAG_NOMINAL_BITRATE, &nominal);
        gst_tag_list_peek_string_index(tags, GST_TAG_AUDIO_CODEC, 0, &codec);
        EXPECT_EQ(codec,
                  "MPEG-1 Layer " + std::to_string(layer) + " (MP" + std::to_string(layer) + ")");
        EXPECT_EQ(nominal, bitrate) << what;
        EXPECT_EQ(told, bitrate) << what;
    }
}

/// Who stands behind the element and answers its k-th buffer with something else.
struct refusal {
    int at;
    GstFlowReturn answer;
    int seen = 0;

    void stand_behind(bench &on) {
        const auto look = [](GstPad *, GstPadProbeInfo *info, gpointer self) {
            auto &own = *static_cast<refusal *>(self);
            if (++own.seen != own.at) return GST_PAD_PROBE_OK;
            gst_buffer_unref(GST_PAD_PROBE_INFO_BUFFER(info));
            GST_PAD_PROBE_INFO_FLOW_RETURN(info) = own.answer;
            return GST_PAD_PROBE_HANDLED;
        };
        gst_pad_add_probe(on.harness->sinkpad, GST_PAD_PROBE_TYPE_BUFFER, look, this, nullptr);
    }
};

TEST(element, passes_on_what_downstream_answers_and_loses_no_more_than_the_buffers_other_frames) {
    const bytes pcm = noise(11520);
    const std::size_t completed[] = {2, 5, 7, 10}; // frames, by four buffers of 2.5 each
    std::vector<frame> calm;
    for (int at = 0; at <= 11; ++at) {
        refusal end{at, at % 2 == 0 ? GST_FLOW_FLUSHING : GST_FLOW_ERROR};
        bench on("");
        end.stand_behind(on);
        std::size_t before = 0;
        std::vector<frame> expected;
        for (std::size_t i = 0; i < 4; ++i) {
            const auto refused = static_cast<std::size_t>(at);
            const bool hit = refused > before && refused <= completed[i];
            EXPECT_EQ(on.push(pcm, i * 60 * GST_MSECOND), hit ? end.answer : GST_FLOW_OK)
                << at << ' ' << i;
            if (at > 0)
                expected.insert(expected.end(), calm.data() + before,
                                calm.data() + (hit ? refused - 1 : completed[i]));
            before = completed[i];
        }
        gst_harness_push_event(on.harness.get(), gst_event_new_eos());
        if (at == 0) calm = expected = on.frames();
        EXPECT_EQ(on.frames(), expected) << at;
    }
    EXPECT_EQ(calm.size(), 10U);
}

// The base class keeps what no frame stood for, and aborts where samples of two formats meet.
TEST(element, survives_a_new_format_after_a_frame_that_nobody_took) {
    const bytes pcm = noise(4 * 4000);
    bench on("", 48000, 1);
    const owned<GstCaps, gst_caps_unref> stereo(s16(48000, 2));
    refusal end{1, GST_FLOW_FLUSHING};
    end.stand_behind(on);
    on.push(noise(2 * 980));
    gst_harness_push_event(on.harness.get(), gst_event_new_caps(stereo.get()));
    on.push(pcm, GST_SECOND);
    gst_harness_push_event(on.harness.get(), gst_event_new_eos());
    EXPECT_EQ(on.stream(), stream_of(pcm));
}

TEST(element, without_memory_for_the_encoder_says_so_and_goes_on_when_there_is_some) {
    if (!memory_can_be_out) GTEST_SKIP() << "this build's malloc is a sanitizer's";
    const bytes pcm = noise(4 * 4608);
    bench on("");
    const owned<GstBus, gst_object_unref> bus(gst_bus_new());
    gst_element_set_bus(on.harness->element, bus.get());
    memory_is_out = true;
    EXPECT_EQ(on.push(pcm), GST_FLOW_NOT_NEGOTIATED);
    memory_is_out = false;
    const owned<GstMessage, gst_message_unref> message(
        gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR));
    ASSERT_NE(message, nullptr);
    GError *error = nullptr;
    gst_message_parse_error(message.get(), &error, nullptr);
    EXPECT_TRUE(g_error_matches(error, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NO_SPACE_LEFT));
    g_error_free(error);
    gst_harness_set_src_caps(on.harness.get(), s16(48000, 2));
    on.push(pcm);
    EXPECT_EQ(on.stream(), stream_of(pcm));
    gst_element_set_bus(on.harness->element, nullptr);
}

} // namespace
