// What the encoder, a preset and the standard allow.
#pragma once

#include "vela_enc_mp1a/settings.h"

#include <functional>
#include <string>
#include <vector>

namespace tools {

/// @param tell  gets the library's message of every rule that the settings break
/// @return the code of the first one, 0 without one
int find_violations(const mpeg_a_settings &settings, int preset, int sample_rate,
                    const std::function<void(const std::string &)> &tell);

/// Whether an encoder can be made, at any rate.
bool is_usable(const mpeg_a_settings &settings) noexcept;

/// Whether the preset would take this mode, layer and bitrate, everything else being its own.
bool preset_takes(const mpeg_a_settings &settings, int preset) noexcept;

/// Whether the preset has a bitrate that the standard has for one channel, too: players of the others take
/// two channels only.
bool takes_mono(int preset) noexcept;

/// Rates in Hz, rising, at which a stream of the preset's own settings conforms to its format; all of
/// MPEG-1 where there is none.
std::vector<int> rates_of_preset(int preset);

/// "Layer II joint stereo"
std::string layer_and_mode(const mpeg_a_settings &settings);

/// "Layer I mono has 96, 128, ... kbit/s", as can be encoded.
std::string bitrates_text(const mpeg_a_settings &settings);

/// What to know of a bitrate that can be encoded but does not go with the mode in the standard; empty
/// for one that does.
std::string remark_on_bitrate(const mpeg_a_settings &settings);

} // namespace tools
