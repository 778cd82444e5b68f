// The element between two pads of the test's: its stamps, and what events do to it.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <gst/check/gstharness.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>

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
};

struct bench {
    owned<GstHarness, gst_harness_teardown> harness;
    std::vector<frame> pulled;

    explicit bench(const std::string &properties, int rate = 48000, int channels = 2) {
        gst_init(nullptr, nullptr);
        harness.reset(gst_harness_new_parse(("velamp2enc " + properties).c_str()));
        gst_harness_set_src_caps(harness.get(), s16(rate, channels));
    }

    void push(const bytes &pcm, GstClockTime start = 0, GstBufferFlags flag = {}) {
        GstBuffer *const buffer = gst_buffer_new_memdup(pcm.data(), pcm.size());
        GST_BUFFER_PTS(buffer) = start;
        GST_BUFFER_FLAG_SET(buffer, flag);
        gst_harness_push(harness.get(), buffer);
    }

    /// All that has come out so far.
    const std::vector<frame> &frames() {
        while (GstBuffer *const buffer = gst_harness_try_pull(harness.get())) {
            pulled.push_back({bytes(gst_buffer_get_size(buffer)), GST_BUFFER_PTS(buffer),
                              GST_BUFFER_IS_DISCONT(buffer) != FALSE});
            gst_buffer_extract(buffer, 0, pulled.back().data.data(), pulled.back().data.size());
            gst_buffer_unref(buffer);
        }
        return pulled;
    }
    bytes stream() {
        bytes all;
        for (const frame &one : frames())
            all.insert(all.end(), one.data.begin(), one.data.end());
        return all;
    }

    bool has_event(GstEventType type) {
        bool found = false;
        while (const owned<GstEvent, gst_event_unref> event{gst_harness_try_pull_event(harness.get())})
            found |= GST_EVENT_TYPE(event.get()) == type;
        return found;
    }
};

bytes stream_of(const bytes &pcm, int rate = 48000, int channels = 2) {
    bench on("", rate, channels);
    on.push(pcm);
    gst_harness_push_event(on.harness.get(), gst_event_new_eos());
    return on.stream();
}

// A click is where a decoder puts it by the stamps, and the decoded sound ends with the input, or with the
// frames where they end sooner.
TEST(element, sound_comes_out_of_a_decoder_at_its_own_time) {
    const struct {
        const char *properties;
        int rate, length, end; ///< of the input, of what is decoded
    } rows[] = {
        {"layer=1", 44100, 90 * 384 + 300, 91 * 384 - 545},
        {"layer=2", 44100, 30 * 1152 + 300, 30 * 1152 + 300},
        {"layer=2", 48000, 31 * 1152, 31 * 1152 - 481},
    };
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
            EXPECT_TRUE(on.has_event(type)) << "the gap waits for something";
        }
        on.push(after, 5 * GST_SECOND);
        gst_harness_push_event(on.harness.get(), gst_event_new_eos());
        const bytes second = stream_of(after, rate, channels);
        expected.insert(expected.end(), second.begin(), second.end());
        EXPECT_EQ(expected, on.stream()) << gst_event_type_get_name(type);
        EXPECT_EQ(5 * GST_SECOND, on.frames().at(completes ? 3 : 2).pts)
            << gst_event_type_get_name(type);
    }
}

TEST(element, follows_a_jump_of_live_input) {
    bench on("");
    on.push(noise(4 * (1152 + 481)));
    on.push(noise(4 * 3 * 1152), 60 * GST_SECOND, GST_BUFFER_FLAG_DISCONT);
    const auto frames = on.frames();
    ASSERT_EQ(4U, frames.size());
    const int expected[] = {0, 671, 60 * 48000 + 190, 60 * 48000 + 1342}; // in samples
    for (std::size_t i = 0; i < frames.size(); ++i)
        EXPECT_NEAR(expected[i] / 48e3, static_cast<double>(frames[i].pts) / 1e9, 1e-8) << i;
    EXPECT_TRUE(frames[2].discont && !frames[3].discont);
    // A frame, and the delay by which its stamp lies before its first sample.
    EXPECT_EQ(gst_util_uint64_scale_ceil(1152 + 481, GST_SECOND, 48000),
              gst_harness_query_latency(on.harness.get()));
}

} // namespace
