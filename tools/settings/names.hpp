// What the values of the settings record are called, on command lines, as properties, in reports and files.
#pragma once

#include "vela_enc_mp1a/settings.h"

#include <optional>
#include <span>
#include <string>

namespace tools {

struct named_value {
    const char *name; ///< one word: of options, properties and fields
    int value;
    const char *text; ///< for people, inside a sentence
};

inline constexpr named_value mode_names[] = {
    {"stereo", MPEG_A_MODE_STEREO, "stereo"},
    {"joint", MPEG_A_MODE_JOINT_STEREO, "joint stereo"},
    {"dual", MPEG_A_MODE_DUAL_CHANNEL, "dual channel"},
    {"mono", MPEG_A_MODE_MONO, "mono"},
};
/// The same modes in the coding history of a Broadcast WAV file (EBU R 98).
inline constexpr const char *history_modes[] = {"stereo", "joint-stereo", "dual-mono", "mono"};

inline constexpr named_value emphasis_names[] = {
    {"none", MPEG_A_EMPHASIS_NONE, "no emphasis"},
    {"50/15", MPEG_A_EMPHASIS_50_15, "50/15 microseconds"},
    {"j17", MPEG_A_EMPHASIS_J17, "CCITT J.17"},
};

inline constexpr named_value model_names[] = {
    {"standard", MPEG_A_MODEL_STANDARD, "the standard's model and allocation"},
    {"tuned", MPEG_A_MODEL_TUNED, "tuned for less audible noise"},
};

inline constexpr named_value preset_names[] = {
    {"vcd", MPEG_A_PRESET_VCD, "Video CD"},
    {"svcd", MPEG_A_PRESET_SVCD, "Super Video CD"},
    {"dvd", MPEG_A_PRESET_DVD, "DVD-Video"},
    {"dvd-dual", MPEG_A_PRESET_DVD_DUAL, "DVD-Video with dual channel allowed"},
    {"dvb", MPEG_A_PRESET_DVB, "Digital Video Broadcasting"},
    {"micromv", MPEG_A_PRESET_MICROMV, "MicroMV"},
    {"dvhs", MPEG_A_PRESET_DVHS, "D-VHS"},
    {"hdv", MPEG_A_PRESET_HDV, "HDV"},
    {"none", MPEG_A_PRESET_NONE, "no target format"},
};
inline constexpr int highest_preset_code = 19;

/// The row of that value. One that the standard reserves, as streams may have it, has the name "reserved".
const named_value &name_of(std::span<const named_value> names, int value) noexcept;

/// All names: "stereo|joint|dual|mono".
std::string list_of(std::span<const named_value> names);

std::optional<int> value_of(std::span<const named_value> names, const std::string &name) noexcept;

/// A preset's code, from its name or from the code as a decimal number.
std::optional<int> preset_called(const std::string &text) noexcept;

} // namespace tools
