// The frame header: set-up from the settings and the 32-bit word of the stream.
#pragma once

#include "vela_enc_mp1a/bufstream.h"
#include "vela_enc_mp1a/settings.h"

#include <cstdint>

namespace vela {

/// Fills `header` for a stream; padding and mode_extension start at 0 and change per frame.
/// @return 0; -1, with `header` untouched, when sample_rate is not 32000, 44100 or 48000
int init_frame_header(frame_header &header, const mpeg_a_settings &settings, int sample_rate) noexcept;

/// The header as it stands in the stream (ISO/IEC 11172-3, 2.4.1.3):
///
///     31        20 19 18 17 16 15   12 11 10  9  8  7  6  5  4  3  2  1  0
///    +------------+--+-----+--+-------+-----+--+--+-----+-----+--+--+-----+
///    | sync 0xFFF |id|layer|no|bitrate|rate |pa|pr|mode |mode |co|or|emph |
///    |            |  | 4-n |CRC| index|index|d |iv|     | ext |py|ig|     |
///    +------------+--+-----+--+-------+-----+--+--+-----+-----+--+--+-----+
std::uint32_t header_word(const frame_header &header) noexcept;

} // namespace vela
