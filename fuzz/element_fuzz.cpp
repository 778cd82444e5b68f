// Random hosts of the element: properties, caps, samples and events in any order. A script of bytes decides
// everything, so that the same bytes do the same again.
#include "byte_source.hpp"

#include <array>
#include <gst/check/gstharness.h>
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
            &host::set_property, &host::send_caps, &host::send_samples, &host::send_samples,
            &host::send_samples, &host::send_gap,  &host::send_segment, &host::flush,
            &host::end,          &host::query,     &host::restart};
        (this->*all[actions_.below(std::size(all))])();
        check_output();
    }

  private:
    void set_property() {
        static constexpr std::array numbers{"bitrate", "layer"};
        static constexpr std::array choices{"mode", "preset", "emphasis"};
        static constexpr std::array bits{"crc", "copyright", "original", "private"};
        GstElement *const element = harness_->element;
        const unsigned which = actions_.below(9U);
        if (which < 4)
            g_object_set(element, bits[which], static_cast<gboolean>(actions_.below(2U)), nullptr);
        else if (which < 6)
            g_object_set(element, numbers[which - 4],
                         static_cast<int>(which == 4 ? actions_.below(15U) * 32 : actions_.below(3U)),
                         nullptr);
        else
            set_choice(choices[which - 6]);
    }

    void set_choice(const char *name) {
        auto *const property = G_PARAM_SPEC_ENUM(
            g_object_class_find_property(G_OBJECT_GET_CLASS(harness_->element), name));
        const unsigned entry = actions_.below(property->enum_class->n_values);
        g_object_set(harness_->element, name, property->enum_class->values[entry].value, nullptr);
    }

    void send_caps() {
        static constexpr std::array formats{"S16LE", "S24LE", "F32LE"};
        static constexpr std::array rates{32000, 44100, 48000};
        const unsigned format = actions_.below(3U), channels = 1 + actions_.below(2U);
        rate_ = rates[actions_.below(3U)];
        bytes_of_sample_ = (format + 2) * channels;
        gst_harness_set_src_caps(
            harness_, gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, formats[format],
                                          "layout", G_TYPE_STRING, "interleaved", "rate", G_TYPE_INT,
                                          rate_, "channels", G_TYPE_INT, channels, nullptr));
    }

    void send_samples() {
        const auto size = std::size_t{1 + actions_.below(5000U)} * bytes_of_sample_;
        std::vector<std::uint8_t> pcm(size);
        const auto given = actions_.take(actions_.below(256U));
        std::copy_n(given.begin(), std::min(given.size(), size), pcm.begin());
        GstBuffer *const buffer = gst_buffer_new_memdup(pcm.data(), size);
        const unsigned jump = actions_.below(16U);
        if (jump == 0) time_ += GST_SECOND;
        if (jump == 1) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
        if (jump != 2) GST_BUFFER_PTS(buffer) = time_;
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
        gst_segment_init(&segment, GST_FORMAT_TIME);
        segment.start = segment.time = actions_.below(10U) * GST_SECOND;
        time_ = segment.start;
        gst_harness_push_event(harness_, gst_event_new_segment(&segment));
    }

    void flush() {
        gst_harness_push_event(harness_, gst_event_new_flush_start());
        gst_harness_push_event(harness_, gst_event_new_flush_stop(TRUE));
        send_segment();
    }

    /// Only a flush goes on after the end.
    void end() {
        gst_harness_push_event(harness_, gst_event_new_eos());
        flush();
    }

    void query() {
        gst_harness_query_latency(harness_);
        gst_caps_unref(gst_pad_peer_query_caps(harness_->srcpad, nullptr));
    }

    void restart() {
        gst_element_set_state(harness_->element, GST_STATE_READY);
        gst_element_set_state(harness_->element, GST_STATE_PLAYING);
        send_caps();
        send_segment();
    }

    /// One frame a buffer.
    void check_output() {
        while (GstBuffer *const buffer = gst_harness_try_pull(harness_)) {
            std::array<std::uint8_t, 2> sync{};
            gst_buffer_extract(buffer, 0, sync.data(), sync.size());
            expect(sync[0] == 0xFF && sync[1] >= 0xFC, "no header");
            expect(gst_buffer_get_size(buffer) <= 1728, "more than a frame");
            expect(GST_BUFFER_DURATION(buffer) <= 36 * GST_MSECOND + 1
                       || !GST_BUFFER_PTS_IS_VALID(buffer),
                   "longer than a frame");
            gst_buffer_unref(buffer);
        }
    }

    fuzz::byte_source &actions_;
    GstHarness *harness_;
    GstClockTime time_ = 0;
    int rate_ = 0;
    unsigned bytes_of_sample_ = 0;
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
