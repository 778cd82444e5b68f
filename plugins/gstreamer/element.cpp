// velamp2enc: the encoder as an element of a GStreamer pipeline.
//
// The base class keeps the clock: each frame tells it how many samples of the input it stands for, and
// it stamps the frame with the time of the first one. The encoder's delay is in those numbers
// (timeline.hpp). The base class's own "lookahead" would only move all stamps, the first of them below
// zero.
#include "element.hpp"

#include "format_caps.hpp"
#include "frame_source.hpp"
#include "properties.hpp"
#include "settings/record.hpp"
#include "steady_stamps.hpp"
#include "timeline.hpp"
#include "verdict.hpp"

#include <cstring>
#include <gst/audio/audio.h>
#include <memory>

GST_DEBUG_CATEGORY_STATIC(velamp2enc_debug);
#define GST_CAT_DEFAULT velamp2enc_debug

namespace {

using velamp2::wishes;

/// What the C structure of the element holds; apart from the wishes, all of it is the streaming
/// thread's.
struct state {
    wishes wished; ///< under the object lock
    std::unique_ptr<velamp2::frame_source> source;
    velamp2::timeline timeline;
    velamp2::steady_stamps stamps;
    int bytes_of_sample = 0; ///< of all channels
};

struct GstVelaMp2Enc {
    GstAudioEncoder parent;
    state *members;
};
struct GstVelaMp2EncClass {
    GstAudioEncoderClass parent;
};

} // namespace

G_DEFINE_TYPE(GstVelaMp2Enc, gst_vela_mp2_enc, GST_TYPE_AUDIO_ENCODER)

namespace {

state &members_of(gpointer element) {
    return *static_cast<GstVelaMp2Enc *>(element)->members;
}

wishes copy_wishes(GstAudioEncoder *enc) {
    GST_OBJECT_LOCK(enc);
    wishes copy = members_of(enc).wished;
    GST_OBJECT_UNLOCK(enc);
    return copy;
}

void on_set_property(GObject *object, guint id, const GValue *value, GParamSpec *) {
    GST_OBJECT_LOCK(object);
    velamp2::set_property(members_of(object).wished, id, value);
    GST_OBJECT_UNLOCK(object);
}

void on_get_property(GObject *object, guint id, GValue *value, GParamSpec *) {
    GST_OBJECT_LOCK(object);
    velamp2::get_property(members_of(object).wished, id, value);
    GST_OBJECT_UNLOCK(object);
}

/// Counts everything that came in and no frame stands for as gone. The base class keeps it otherwise, and
/// ends the process where it meets samples of two formats.
GstFlowReturn give_up_samples(GstAudioEncoder *enc) {
    return gst_audio_encoder_finish_frame(enc, nullptr, -1);
}

/// Pushes what the encoder has finished. Once downstream has refused a frame the others are dropped, but
/// counted: who goes on pushing, as with a pad that nobody has linked yet, finds the clock right.
GstFlowReturn push_frames(GstAudioEncoder *enc) {
    state &self = members_of(enc);
    GstFlowReturn result = GST_FLOW_OK;
    for (const auto &frame : self.source->frames()) {
        const auto [clip_start, samples, clip_end] = self.timeline.next_frame();
        if (result != GST_FLOW_OK) {
            gst_audio_encoder_finish_frame(enc, nullptr, samples);
            continue;
        }
        GstBuffer *const buffer = gst_audio_encoder_allocate_output_buffer(enc, frame.size());
        gst_buffer_fill(buffer, 0, frame.data(), frame.size());
        if (clip_start > 0 || clip_end > 0)
            gst_buffer_add_audio_clipping_meta(buffer, GST_FORMAT_DEFAULT,
                                               static_cast<guint64>(clip_start),
                                               static_cast<guint64>(clip_end));
        result = gst_audio_encoder_finish_frame(enc, buffer, samples);
    }
    return result;
}

/// Ends the stream; the next sample begins another one.
GstFlowReturn drain(GstAudioEncoder *enc) {
    state &self = members_of(enc);
    self.source->finish();
    const GstFlowReturn result = push_frames(enc);
    self.timeline.restart();
    self.stamps.restart();
    const GstFlowReturn counted = give_up_samples(enc); // the last that the decoder holds back
    return result == GST_FLOW_OK ? counted : result;
}

/// Before the base class sees it. With its own "perfect-timestamp" a jump would move the samples before it,
/// too.
GstPadProbeReturn on_buffer(GstPad *pad, GstPadProbeInfo *info, gpointer) {
    auto *const enc = GST_AUDIO_ENCODER(GST_PAD_PARENT(pad));
    state &self = members_of(enc);
    GstBuffer *const buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    const GstClockTime stamp =
        self.stamps.next(GST_BUFFER_PTS(buffer), gst_buffer_get_size(buffer),
                         static_cast<GstClockTime>(gst_audio_encoder_get_tolerance(enc)));
    if (stamp == GST_BUFFER_PTS(buffer)) return GST_PAD_PROBE_OK;
    GstBuffer *const steady = gst_buffer_make_writable(buffer);
    GST_BUFFER_PTS(steady) = stamp;
    GST_PAD_PROBE_INFO_DATA(info) = steady;
    return GST_PAD_PROBE_OK;
}

GstFlowReturn on_handle_frame(GstAudioEncoder *enc, GstBuffer *buffer) {
    state &self = members_of(enc);
    if (self.source == nullptr) return buffer == nullptr ? GST_FLOW_OK : GST_FLOW_NOT_NEGOTIATED;
    if (buffer == nullptr) return drain(enc);
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        GST_ELEMENT_ERROR(enc, RESOURCE, READ, ("the samples cannot be read"), (nullptr));
        give_up_samples(enc);
        return GST_FLOW_ERROR;
    }
    self.timeline.take(static_cast<std::int64_t>(map.size) / self.bytes_of_sample);
    const bool encoded = self.source->put({map.data, map.size});
    gst_buffer_unmap(buffer, &map);
    if (!encoded) {
        GST_ELEMENT_ERROR(enc, LIBRARY, ENCODE, ("the encoder failed"), (nullptr));
        give_up_samples(enc);
        return GST_FLOW_ERROR;
    }
    return push_frames(enc);
}

void on_flush(GstAudioEncoder *enc) {
    state &self = members_of(enc);
    if (self.source != nullptr) self.source->restart();
    self.timeline.restart();
    self.stamps.restart();
}

gboolean on_stop(GstAudioEncoder *enc) {
    members_of(enc).source.reset();
    return TRUE;
}

/// The base class sets the format only when the first buffer of it has come.
void expect_format(GstAudioEncoder *enc, GstEvent *event) {
    GstCaps *caps = nullptr;
    GstAudioInfo info;
    gst_event_parse_caps(event, &caps);
    if (gst_audio_info_from_caps(&info, caps))
        members_of(enc).stamps = {GST_AUDIO_INFO_RATE(&info), GST_AUDIO_INFO_BPF(&info)};
}

/// A pause: what is pending goes out before it, so that nobody downstream waits for it.
gboolean on_sink_event(GstAudioEncoder *enc, GstEvent *event) {
    const auto parent = GST_AUDIO_ENCODER_CLASS(gst_vela_mp2_enc_parent_class)->sink_event;
    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) expect_format(enc, event);
    if (GST_EVENT_TYPE(event) != GST_EVENT_GAP || members_of(enc).source == nullptr)
        return parent(enc, event);
    GST_AUDIO_ENCODER_STREAM_LOCK(enc);
    const bool drained = drain(enc) == GST_FLOW_OK;
    const gboolean result = parent(enc, event);                   // keeps it until the next frame ...
    if (drained) gst_audio_encoder_finish_frame(enc, nullptr, 0); // ... or this
    GST_AUDIO_ENCODER_STREAM_UNLOCK(enc);
    return result;
}

GstCaps *on_getcaps(GstAudioEncoder *enc, GstCaps *filter) {
    // What is offered is not handed to the proxy, which loses it when downstream takes nothing (GStreamer 1.22).
    GstCaps *const passing = gst_audio_encoder_proxy_getcaps(enc, nullptr, filter);
    GstCaps *const offered = velamp2::offered_caps(copy_wishes(enc));
    GstCaps *const result = gst_caps_intersect_full(offered, passing, GST_CAPS_INTERSECT_FIRST);
    gst_caps_unref(offered);
    gst_caps_unref(passing);
    return result;
}

/// Posts what the rules say. False: there is no encoder for these settings.
bool report(GstAudioEncoder *enc, const velamp2::verdict &verdict) {
    if (!verdict.usable)
        GST_ELEMENT_ERROR(enc, LIBRARY, SETTINGS, ("%s", verdict.messages.c_str()), (nullptr));
    else if (!verdict.messages.empty())
        GST_ELEMENT_WARNING(enc, LIBRARY, SETTINGS, ("%s", verdict.messages.c_str()), (nullptr));
    return verdict.usable;
}

void announce(GstAudioEncoder *enc, const mpeg_a_settings &settings, int rate) {
    const auto bits = static_cast<guint>(1000 * tools::kbit_of(settings));
    GstTagList *const tags =
        gst_tag_list_new(GST_TAG_AUDIO_CODEC,
                         settings.audio_layer == 1 ? "MPEG-1 Layer 1 (MP1)" : "MPEG-1 Layer 2 (MP2)",
                         GST_TAG_NOMINAL_BITRATE, bits, GST_TAG_BITRATE, bits, nullptr);
    gst_audio_encoder_merge_tags(enc, tags, GST_TAG_MERGE_REPLACE);
    gst_tag_list_unref(tags);
    // A frame leaves when its last sample has come, and its stamp lies a delay before its first one.
    const int samples = tools::samples_of_frame(settings) + tools::decoder_delay(settings.audio_layer);
    const GstClockTime latency = gst_util_uint64_scale_ceil(static_cast<guint64>(samples), GST_SECOND,
                                                            static_cast<guint64>(rate));
    gst_audio_encoder_set_latency(enc, latency, latency);
}

gboolean on_set_format(GstAudioEncoder *enc, GstAudioInfo *info) {
    const wishes wished = copy_wishes(enc);
    const int channels = GST_AUDIO_INFO_CHANNELS(info), rate = GST_AUDIO_INFO_RATE(info);
    const auto settings = tools::settle(wished, channels, velamp2::layer_for(enc->srcpad));
    state &self = members_of(enc);
    self.source.reset();
    if (tools::channels_of(settings) != channels) return FALSE; // not what was offered
    if (!report(enc, velamp2::judge(settings, wished, rate))) return FALSE;
    const int bytes = GST_AUDIO_INFO_BPF(info) / channels;
    const bool aligns = wished.align.value_or(0) != 0;
    const bool flushes = aligns || wished.flush_tail.value_or(0) != 0;
    auto source = std::make_unique<velamp2::frame_source>(settings, bytes, rate,
                                                          velamp2::sound_shift{aligns, flushes});
    if (!source->is_ready()) {
        GST_ELEMENT_ERROR(enc, RESOURCE, NO_SPACE_LEFT, ("no memory for the encoder"), (nullptr));
        return FALSE;
    }
    self.timeline = velamp2::timeline(tools::samples_of_frame(settings),
                                      aligns ? 0 : tools::decoder_delay(settings.audio_layer));
    self.bytes_of_sample = GST_AUDIO_INFO_BPF(info);
    announce(enc, settings, rate);
    GstCaps *const caps = velamp2::stream_caps(settings, rate);
    const gboolean accepted = gst_audio_encoder_set_output_format(enc, caps);
    gst_caps_unref(caps);
    if (accepted) self.source = std::move(source);
    return accepted;
}

void on_finalize(GObject *object) {
    delete static_cast<GstVelaMp2Enc *>(static_cast<gpointer>(object))->members;
    G_OBJECT_CLASS(gst_vela_mp2_enc_parent_class)->finalize(object);
}

} // namespace

static void gst_vela_mp2_enc_class_init(GstVelaMp2EncClass *klass) {
    GST_DEBUG_CATEGORY_INIT(velamp2enc_debug, "velamp2enc", 0, "MPEG-1 Audio Layer I/II encoder");
    auto *const object_class = G_OBJECT_CLASS(klass);
    object_class->set_property = on_set_property;
    object_class->get_property = on_get_property;
    object_class->finalize = on_finalize;
    velamp2::install_properties(object_class);

    auto *const element_class = GST_ELEMENT_CLASS(klass);
    velamp2::add_pad_templates(element_class);
    gst_element_class_set_static_metadata(
        element_class, "MPEG-1 Audio Layer I/II encoder", "Codec/Encoder/Audio",
        "Encodes audio as MPEG-1 Audio Layer I or II (MP1, MP2)", "the makers of vela_enc_mp1a");

    auto *const encoder_class = GST_AUDIO_ENCODER_CLASS(klass);
    encoder_class->stop = on_stop;
    encoder_class->set_format = on_set_format;
    encoder_class->handle_frame = on_handle_frame;
    encoder_class->flush = on_flush;
    encoder_class->sink_event = on_sink_event;
    encoder_class->getcaps = on_getcaps;
}

static void gst_vela_mp2_enc_init(GstVelaMp2Enc *self) {
    self->members = new state;
    gst_pad_add_probe(GST_AUDIO_ENCODER_SINK_PAD(self), GST_PAD_PROBE_TYPE_BUFFER, on_buffer, nullptr,
                      nullptr);
    // Two channels without a mask are left and right.
    GST_PAD_SET_ACCEPT_INTERSECT(GST_AUDIO_ENCODER_SINK_PAD(self));
}
