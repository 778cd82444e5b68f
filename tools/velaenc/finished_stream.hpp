// Whether a file holds a stream of this program's kind, or a certain one.
#pragma once

#include "output/output_target.hpp"
#include "vela_enc_mp1a/settings.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tools {

/// Whether a file, bare or WAV, begins with two frames of MPEG-1 Layer I or II that agree with each other: four
/// bytes begin like one in many a text, too.
bool is_own_stream(const file_view &file);

/// Looks at the headers of the first and the last frame; what lies between is taken to be whole, since
/// an output gets its name when it is complete.
/// @param in_wave  the stream lies in the data chunk of a WAV file
/// @param rate     Hz
/// @param frames   that it should have; none: as many as there are
/// @return its frames; none where it is another stream
std::optional<std::uint64_t> frames_of_stream(const std::string &path, bool in_wave,
                                              const mpeg_a_settings &settings, int rate,
                                              std::optional<std::uint64_t> frames);

} // namespace tools
