// Random hosts of the element: properties, caps, samples and events in any order, good and bad, and a
// neighbour downstream that wants something else or nothing. A script of bytes decides everything, so that
// the same bytes do the same again.
#include "byte_source.hpp"
#include "judged_frame.hpp"

#include <array>
#include <gst/check/gstharness.h>
#include <utility>
#include <vector>

// GLib keeps what it allocates while it is loaded; only whole stacks tell that from other leaks.
extern "C" __attribute__((visibility("default"))) const char *__asan_default_options() {
    return "fast_unwind_on_malloc=0";
}
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions() {
    return "leak:call_init\n";
}

namespace {

using fuzz::expect;

class host {
  public:
    explicit host(fuzz::byte_source &actions)
        : actions_(actions), harness_(gst_harness_new("velamp2enc")) {
        static constexpr std::array wanted{"audio/mpeg, layer = (int) 1", "audio/mpeg, layer = (int) 2",
                                           "audio/mpeg, rate = (int) 48000", "video/x-raw"};
        const unsigned downstream = actions_.below(16U);
        if (downstream < wanted.size()) gst_harness_set_sink_caps_str(harness_, wanted[downstream]);
        send_caps();
    }
    host(const host &) = delete;
    host &operator=(const host &) = delete;
    ~host() {
        check_output();
        gst_harness_teardown(harness_);
    }

    void act() {
        constexpr void (host::*all[])() = {
            &host::set_property, &host::set_property, &host::send_caps,    &host::send_samples,
            &host::send_samples, &host::send_samples, &host::send_samples, &host::send_gap,
            &host::send_segment, &host::flush,        &host::end,          &host::restart};
        (this->*all[actions_.below(std::size(all))])();
        check_output();
    }

  private:
    /// Any property, to any value; what was written can be read.
    void set_property() {
        guint count = 0;
        GParamSpec **const all =
            g_object_class_list_properties(G_OBJECT_GET_CLASS(harness_->element), &count);
        GParamSpec *const property = all[actions_.below(count)];
        g_free(all);
        if ((property->flags & G_PARAM_WRITABLE) == 0
            || G_PARAM_SPEC_VALUE_TYPE(property) == GST_TYPE_OBJECT)
            return;
        const unsigned numbers[] = {actions_.below(2U), actions_.below(15U) * 32, actions_.below(500U)};
        gst_util_set_object_arg(G_OBJECT(harness_->element), property->name,
                                std::to_string(numbers[actions_.below(3)]).c_str());
        GValue value = G_VALUE_INIT;
        g_object_get_property(G_OBJECT(harness_->element), property->name, &value);
        g_value_unset(&value);
    }

    /// Those that the element takes, and at times others.
    void send_caps() {
        static constexpr std::array formats{"S16LE", "S24LE", "F32LE", "S16BE", "S32LE", "F64LE"};
        static constexpr std::array rates{32000, 44100, 48000, 1, -1, 96000};
        const bool is_odd = actions_.below(8U) == 7;
        const unsigned choices = is_odd ? 6 : 3;
        const unsigned format = actions_.below(choices);
        const unsigned channels = 1 + actions_.below(is_odd ? 8U : 2U);
        rate_ = rates[actions_.below(choices)];
        bytes_of_sample_ = (format % 3 + 2) * channels;
        const unsigned other = is_odd ? actions_.below(8U) : 0;
        GstCaps *const caps = gst_caps_new_simple(
            other == 7 ? "audio/mpeg" : "audio/x-raw", "format", G_TYPE_STRING, formats[format],
            "layout", G_TYPE_STRING, other == 6 ? "non-interleaved" : "interleaved", "rate", G_TYPE_INT,
            rate_, "channels", G_TYPE_INT, channels, nullptr);
        if (std::exchange(has_caps_, true)) {
            gst_harness_push_event(harness_, gst_event_new_caps(caps));
            gst_caps_unref(caps);
        } else {
            gst_harness_set_src_caps(harness_, caps); // begins the stream too
        }
    }

    void send_samples() {
        const auto size =
            std::size_t{1 + actions_.below(5000U)} * bytes_of_sample_ + (actions_.below(64U) == 63);
        std::vector<std::uint8_t> pcm(size);
        const auto given = actions_.take(actions_.below(256U));
        for (std::size_t i = 0; i < size && !given.empty(); ++i)
            pcm[i] = given[i % given.size()];
        GstBuffer *const buffer = gst_buffer_new_memdup(pcm.data(), size);
        const unsigned jump = actions_.below(16U);
        if (jump == 0) time_ += GST_SECOND;
        if (jump == 1) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
        if (jump == 2) time_ -= std::min<GstClockTime>(time_, GST_SECOND);
        if (jump != 3) GST_BUFFER_PTS(buffer) = time_;
        time_ +=
            gst_util_uint64_scale(size / bytes_of_sample_, GST_SECOND, static_cast<guint64>(rate_));
        gst_harness_push(harness_, buffer);
    }

    void send_gap() {
        const GstClockTime duration = actions_.below(1000U) * GST_MSECOND;
        gst_harness_push_event(harness_, gst_event_new_gap(time_, duration));
        time_ += duration;
    }

    void send_segment() {
        GstSegment segment;
        gst_segment_init(&segment, actions_.below(16U) == 15 ? GST_FORMAT_BYTES : GST_FORMAT_TIME);
        segment.start = segment.time = actions_.below(10U) * GST_SECOND;
        if (actions_.below(8U) == 7) segment.stop = segment.start + actions_.below(50U) * GST_MSECOND;
        time_ = segment.start;
        gst_harness_push_event(harness_, gst_event_new_segment(&segment));
    }

    void flush() {
        gst_harness_push_event(harness_, gst_event_new_flush_start());
        if (actions_.below(8U) == 7) send_samples(); // refused
        gst_harness_push_event(harness_,
                               gst_event_new_flush_stop(static_cast<gboolean>(actions_.below(2U))));
        send_segment();
    }

    /// Only a flush goes on after the end.
    void end() {
        gst_harness_push_event(harness_, gst_event_new_eos());
        if (actions_.below(4U) == 3) send_samples(); // refused
        flush();
    }

    void restart() {
        static constexpr std::array states{GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED};
        gst_element_set_state(harness_->element, states[actions_.below(3U)]);
        if (actions_.below(4U) == 3) set_property();
        gst_element_set_state(harness_->element, GST_STATE_PLAYING);
        gst_harness_push_event(harness_, gst_event_new_stream_start("again"));
        send_caps();
        send_segment();
    }

    /// One frame a buffer, as the standard wants it.
    void check_output() {
        while (GstBuffer *const buffer = gst_harness_try_pull(harness_)) {
            GstMapInfo map;
            expect(gst_buffer_map(buffer, &map, GST_MAP_READ), "an output that cannot be read");
            fuzz::judge_frame({map.data, map.size});
            gst_buffer_unmap(buffer, &map);
            expect(GST_BUFFER_DURATION(buffer) <= 36 * GST_MSECOND + 1
                       || !GST_BUFFER_PTS_IS_VALID(buffer),
                   "longer than a frame");
            gst_buffer_unref(buffer);
        }
        // Nobody reads them.
        while (GstEvent *const event = gst_harness_try_pull_event(harness_))
            gst_event_unref(event);
        while (GstEvent *const event = gst_harness_try_pull_upstream_event(harness_))
            gst_event_unref(event);
    }

    fuzz::byte_source &actions_;
    GstHarness *harness_;
    GstClockTime time_ = 0;
    int rate_ = 0;
    std::size_t bytes_of_sample_ = 0;
    bool has_caps_ = false;
};

/// The one plugin, without a look at the system's.
bool load_plugin() {
    g_setenv("GST_REGISTRY_UPDATE", "no", TRUE);
    g_setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", TRUE);
    gst_init(nullptr, nullptr);
    expect(gst_plugin_load_file(ELEMENT_PLUGIN, nullptr) != nullptr, "the plugin cannot be loaded");
    g_log_set_always_fatal(G_LOG_LEVEL_CRITICAL);
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const bool loaded = load_plugin();
    fuzz::byte_source actions({data, size});
    host random(actions);
    while (loaded && !actions.empty())
        random.act();
    return 0;
}
