#include "properties.hpp"

#include "settings/names.hpp"

#include <gst/gst.h>
#include <span>

namespace velamp2 {
namespace {

/// Types are registered once, while GObject makes the class under a lock; it keeps the values for ever.
GType enum_type(const char *type, std::span<const tools::named_value> names,
                const GEnumValue *automatic = nullptr) {
    if (const GType known = g_type_from_name(type)) return known;
    GEnumValue *const values = g_new0(GEnumValue, names.size() + 2), *next = values;
    if (automatic != nullptr) *next++ = *automatic;
    for (const auto &[name, value, text] : names)
        *next++ = {value, text, name};
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): they are kept, as said above
    return g_enum_register_static(type, values);
}

constexpr auto flags =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);

GParamSpec *whole_number(const char *name, const char *nick, const char *blurb, int highest) {
    return g_param_spec_int(name, nick, blurb, 0, highest, 0, flags);
}

GParamSpec *bit(const char *name, const char *nick, const char *blurb) {
    return g_param_spec_boolean(name, nick, blurb, FALSE, flags);
}

GParamSpec *choice(const char *name, const char *nick, const char *blurb, GType type, int preset) {
    return g_param_spec_enum(name, nick, blurb, type, preset, flags);
}

/// In the order of the properties' numbers, which begin at 1, with the value that stands for no wish.
constexpr struct row {
    wishes::wish wishes::*wish;
    int automatic = 0;
} rows[] = {
    {&wishes::bitrate},     {&wishes::mode, -1}, {&wishes::layer},     {&wishes::preset},
    {&wishes::emphasis},    {&wishes::crc, -1},  {&wishes::copyright}, {&wishes::original},
    {&wishes::private_bit}, {&wishes::model},    {&wishes::align},     {&wishes::flush_tail},
};

} // namespace

void install_properties(GObjectClass *object_class) {
    static constexpr tools::named_value switch_names[] = {{"false", 0, "no"}, {"true", 1, "yes"}};
    static constexpr GEnumValue as_preset{-1, "as the preset has it", "auto"};
    static constexpr GEnumValue from_channels{-1, "stereo or mono, as the input has channels", "auto"};
    const GType mode = enum_type("GstVelaMp2EncMode", tools::mode_names, &from_channels);
    const GType preset = enum_type("GstVelaMp2EncPreset", tools::preset_names);
    const GType model = enum_type("GstVelaMp2EncModel", tools::model_names);
    const GType crc = enum_type("GstVelaMp2EncSwitch", switch_names, &as_preset);
    const GType emphasis = enum_type("GstVelaMp2EncEmphasis", tools::emphasis_names);
    GParamSpec *const properties[] = {
        whole_number("bitrate", "Bitrate",
                     "Bitrate in kbit/s; 0: the preset's, or what fits the mode and layer", 448),
        choice("mode", "Mode", "Channel mode", mode, -1),
        whole_number("layer", "Layer", "MPEG-1 Audio layer; 0: II, unless downstream takes I only", 2),
        choice("preset", "Preset", "Target format: its defaults, its rates and its rules", preset,
               MPEG_A_PRESET_NONE),
        choice("emphasis", "Emphasis", "Label of the emphasis in the header; nothing is filtered",
               emphasis, MPEG_A_EMPHASIS_NONE),
        choice("crc", "CRC", "A CRC-16 in every frame", crc, -1),
        bit("copyright", "Copyright", "Copyright bit of the header"),
        bit("original", "Original", "Original bit of the header"),
        bit("private", "Private", "Private bit of the header"),
        choice("model", "Model", "Psychoacoustic model and allocation", model, MPEG_A_MODEL_STANDARD),
        bit("align", "Align", "Take the decoder's delay out of the stream, for what follows no stamps"),
        bit("flush-tail", "Flush tail", "Silence behind the sound, so that decoders give all of it"),
    };
    static_assert(std::size(properties) == std::size(rows));
    guint id = 1;
    for (GParamSpec *const property : properties)
        g_object_class_install_property(object_class, id++, property);
    for (const GType type : {mode, preset, emphasis, model, crc})
        gst_type_mark_as_plugin_api(type, static_cast<GstPluginAPIFlags>(0));
}

void set_property(wishes &wished, guint id, const GValue *value) {
    const row &property = rows[id - 1];
    const int number = G_VALUE_HOLDS_BOOLEAN(value) ? g_value_get_boolean(value)
                       : G_VALUE_HOLDS_ENUM(value)  ? g_value_get_enum(value)
                                                    : g_value_get_int(value);
    wished.*property.wish = number == property.automatic ? wishes::wish() : number;
}

void get_property(const wishes &wished, guint id, GValue *value) {
    const row &property = rows[id - 1];
    const int number = (wished.*property.wish).value_or(property.automatic);
    if (G_VALUE_HOLDS_BOOLEAN(value))
        g_value_set_boolean(value, number);
    else if (G_VALUE_HOLDS_ENUM(value))
        g_value_set_enum(value, number);
    else
        g_value_set_int(value, number);
}

} // namespace velamp2
