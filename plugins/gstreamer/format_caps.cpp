#include "format_caps.hpp"

#include "settings/rules.hpp"

#include <span>

namespace velamp2 {
namespace {

#define VELA_RATES "rate = (int) { 32000, 44100, 48000 }, channels = (int) "
#define VELA_SOUND                                                                                     \
    "audio/x-raw, format = (string) { S16LE, S24LE, F32LE }, layout = (string) "                       \
    "interleaved, " VELA_RATES

constexpr char sink_caps[] = VELA_SOUND "[ 1, 2 ]";
constexpr char source_caps[] =
    "audio/mpeg, mpegversion = (int) 1, layer = (int) [ 1, 2 ], parsed = (boolean) true, " VELA_RATES
    "[ 1, 2 ]";

constexpr char one_channel[] = VELA_SOUND "1";
constexpr char two_channels[] = VELA_SOUND "2, channel-mask = (bitmask) { 0x3, 0x0 }";

GstStaticPadTemplate sink_template =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(sink_caps));
GstStaticPadTemplate source_template =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(source_caps));

void set_list(GstCaps *caps, const char *field, std::span<const int> values) {
    GValue list = G_VALUE_INIT, value = G_VALUE_INIT;
    gst_value_list_init(&list, static_cast<guint>(values.size()));
    g_value_init(&value, G_TYPE_INT);
    for (const int number : values) {
        g_value_set_int(&value, number);
        gst_value_list_append_value(&list, &value);
    }
    gst_caps_set_value(caps, field, &list);
    g_value_unset(&list);
}

bool takes_layer(const GstCaps *allowed, int layer) {
    GstCaps *const wanted = gst_caps_new_simple("audio/mpeg", "mpegversion", G_TYPE_INT, 1, "layer",
                                                G_TYPE_INT, layer, nullptr);
    const bool result = gst_caps_can_intersect(allowed, wanted) != FALSE;
    gst_caps_unref(wanted);
    return result;
}

} // namespace

void add_pad_templates(GstElementClass *element_class) {
    gst_element_class_add_static_pad_template(element_class, &sink_template);
    gst_element_class_add_static_pad_template(element_class, &source_template);
}

GstCaps *offered_caps(const tools::wishes &wished) {
    const bool mono =
        wished.mode ? *wished.mode == MPEG_A_MODE_MONO : tools::takes_mono(wished.preset_code());
    const bool stereo = !wished.mode || !mono;
    // Two channels come first, so that audioconvert mixes others to them rather than to one.
    GstCaps *const caps = stereo ? gst_caps_from_string(two_channels) : gst_caps_new_empty();
    if (mono) gst_caps_append(caps, gst_caps_from_string(one_channel));
    set_list(caps, "rate", tools::rates_of_preset(wished.preset_code()));
    return caps;
}

int layer_for(GstPad *source_pad) {
    GstCaps *const allowed = gst_pad_get_allowed_caps(source_pad);
    if (allowed == nullptr) return 2; // nothing is linked
    const bool first_only = takes_layer(allowed, 1) && !takes_layer(allowed, 2);
    gst_caps_unref(allowed);
    return first_only ? 1 : 2;
}

GstCaps *stream_caps(const mpeg_a_settings &settings, int rate) {
    return gst_caps_new_simple("audio/mpeg", "mpegversion", G_TYPE_INT, 1, "mpegaudioversion",
                               G_TYPE_INT, 1, "layer", G_TYPE_INT, settings.audio_layer, "channels",
                               G_TYPE_INT, tools::channels_of(settings), "rate", G_TYPE_INT, rate,
                               "parsed", G_TYPE_BOOLEAN, TRUE, nullptr);
}

} // namespace velamp2
