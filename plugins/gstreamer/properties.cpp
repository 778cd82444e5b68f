#include "properties.hpp"

#include "settings/names.hpp"
#include "vela_enc_mp1a/encoder.h"

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

/// In the order of the properties' numbers, which begin at 1. A wish that follows from the others while
/// nothing is wished has a value that stands for that.
constexpr struct row {
    wishes::wish wishes::*wish;
    bool follows;
    int automatic;
} rows[] = {
    {&wishes::bitrate, true, 0},    {&wishes::mode, true, -1},     {&wishes::layer, true, 0},
    {&wishes::preset, false, 0},    {&wishes::emphasis, false, 0}, {&wishes::crc, false, 0},
    {&wishes::copyright, false, 0}, {&wishes::original, false, 0}, {&wishes::private_bit, false, 0},
    {&wishes::model, false, 0},
};

const row *find_row(guint id) noexcept {
    return id >= 1 && id <= std::size(rows) ? &rows[id - 1] : nullptr;
}

/// What a plain field, or the preset, has without a wish.
int value_without_wish(const wishes &wished, const row &property) noexcept {
    if (property.follows) return property.automatic;
    mpeg_a_settings settings{};
    mpegOutAudioDefaults(&settings, wished.preset_code());
    for (const tools::plain_field &plain : tools::plain_fields)
        if (plain.wish == property.wish) return settings.*plain.field;
    return wished.preset_code();
}

} // namespace

void install_properties(GObjectClass *object_class) {
    static constexpr GEnumValue from_channels{-1, "stereo or mono, as the input has channels", "auto"};
    const GType mode = enum_type("GstVelaMp2EncMode", tools::mode_names, &from_channels);
    const GType preset = enum_type("GstVelaMp2EncPreset", tools::preset_names);
    const GType model = enum_type("GstVelaMp2EncModel", tools::model_names);
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
        bit("crc", "CRC", "A CRC-16 in every frame; until it is set, as the preset has it"),
        bit("copyright", "Copyright", "Copyright bit of the header"),
        bit("original", "Original", "Original bit of the header"),
        bit("private", "Private", "Private bit of the header"),
        choice("model", "Model", "Psychoacoustic model and allocation", model, MPEG_A_MODEL_STANDARD),
    };
    static_assert(std::size(properties) == std::size(rows));
    guint id = 1;
    for (GParamSpec *const property : properties)
        g_object_class_install_property(object_class, id++, property);
    for (const GType type : {mode, preset, emphasis, model})
        gst_type_mark_as_plugin_api(type, static_cast<GstPluginAPIFlags>(0));
}

bool set_property(wishes &wished, guint id, const GValue *value) {
    const row *const property = find_row(id);
    if (property == nullptr) return false;
    const int number = G_VALUE_HOLDS_BOOLEAN(value) ? g_value_get_boolean(value)
                       : G_VALUE_HOLDS_ENUM(value)  ? g_value_get_enum(value)
                                                    : g_value_get_int(value);
    if (property->follows && number == property->automatic)
        (wished.*property->wish).reset();
    else
        wished.*property->wish = number;
    return true;
}

bool get_property(const wishes &wished, guint id, GValue *value) {
    const row *const property = find_row(id);
    if (property == nullptr) return false;
    const int number = (wished.*property->wish).value_or(value_without_wish(wished, *property));
    if (G_VALUE_HOLDS_BOOLEAN(value))
        g_value_set_boolean(value, number);
    else if (G_VALUE_HOLDS_ENUM(value))
        g_value_set_enum(value, number);
    else
        g_value_set_int(value, number);
    return true;
}

} // namespace velamp2
