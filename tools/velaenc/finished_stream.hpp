// Whether a file holds a stream, and a certain one, from its first and last frame and its length.
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

/// Whether a file that begins like this is a stream of Layer I or II, bare or in WAV.
bool is_mpeg_audio(const std::string &head);

} // namespace tools
