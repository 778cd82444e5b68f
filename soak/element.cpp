// Through the element of GStreamer, between two pads.
#include "ways.hpp"

#include <gst/check/gstharness.h>

namespace soak {
namespace {

class harness {
  public:
    harness(const settings &how, judge &judging)
        : how_(how), judge_(judging), harness_(gst_harness_new("velamp2enc")) {
        constexpr const char *modes[] = {"stereo", "joint", "dual", "mono"};
        constexpr const char *formats[] = {"S16LE", "S24LE", "F32LE"};
        for (const auto &[name, value] : std::initializer_list<std::pair<const char *, std::string>>{
                 {"layer", std::to_string(how.layer)},
                 {"mode", modes[how.mode]},
                 {"bitrate", std::to_string(mpeg_a_bitrates[how.layer - 1][how.bitrate])},
                 {"crc", how.crc != 0 ? "true" : "false"},
                 {"model", how.model == MPEG_A_MODEL_TUNED ? "tuned" : "standard"}})
            gst_util_set_object_arg(G_OBJECT(harness_->element), name, value.c_str());
        gst_harness_set_src_caps(harness_,
                                 gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING,
                                                     formats[how.width - 2], "layout", G_TYPE_STRING,
                                                     "interleaved", "rate", G_TYPE_INT, how.rate,
                                                     "channels", G_TYPE_INT, how.channels(), nullptr));
    }
    ~harness() { gst_harness_teardown(harness_); }
    harness(const harness &) = delete;
    harness &operator=(const harness &) = delete;

    void put(std::span<const std::uint8_t> pcm) {
        GstBuffer *const buffer = gst_buffer_new_memdup(pcm.data(), pcm.size());
        GST_BUFFER_PTS(buffer) =
            gst_util_uint64_scale(samples_, GST_SECOND, static_cast<guint64>(how_.rate));
        samples_ += pcm.size() / static_cast<std::size_t>(how_.width * how_.channels());
        if (gst_harness_push(harness_, buffer) != GST_FLOW_OK) fail("the element fails");
        take();
    }
    void end() {
        gst_harness_push_event(harness_, gst_event_new_eos());
        take();
    }

  private:
    void take() {
        const int delay = how_.layer == 1 ? 545 : 481;
        while (GstBuffer *const buffer = gst_harness_try_pull(harness_)) {
            GstMapInfo map;
            gst_buffer_map(buffer, &map, GST_MAP_READ);
            judge_.take_heard({map.data, map.size}, GST_BUFFER_PTS(buffer), delay);
            gst_buffer_unmap(buffer, &map);
            gst_buffer_unref(buffer);
        }
        while (GstEvent *const event = gst_harness_try_pull_event(harness_))
            gst_event_unref(event);
    }

    settings how_;
    judge &judge_;
    GstHarness *harness_;
    guint64 samples_ = 0;
};

class element_voice final : public voice {
  public:
    explicit element_voice(const settings &how) : voice(how), endless_(how, judge_) {}

    /// An element's whole life.
    void start_afresh() override {
        judge fresh(how_, segment_, known_);
        harness another(how_, fresh);
        for (int i = 0; i < 2; ++i)
            in_pieces([&](std::span<const std::uint8_t> piece) { another.put(piece); });
    }
    void end() override { endless_.end(); }

  private:
    void put(std::span<const std::uint8_t> pcm) override { endless_.put(pcm); }

    harness endless_;
};

} // namespace

std::unique_ptr<voice> by_element(const settings &how) {
    gst_init(nullptr, nullptr);
    return std::make_unique<element_voice>(how);
}

} // namespace soak
