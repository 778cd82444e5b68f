// Whether a file holds a certain stream, from its first and last frame and its length.
#pragma once

#include "vela_enc_mp1a/settings.h"

#include <cstdint>
#include <string>

namespace tools {

/// Looks at the headers of the first and the last frame; what lies between is taken to be whole, since
/// an output gets its name when it is complete.
/// @param in_wave  the stream lies in the data chunk of a WAV file
/// @param rate     Hz
bool holds_stream(const std::string &path, bool in_wave, const mpeg_a_settings &settings, int rate,
                  std::uint64_t frames);

} // namespace tools
