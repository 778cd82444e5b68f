// From what a program has set to the encoder's settings record.
#pragma once

#include "options.hpp"
#include "vela_enc_mp1a/settings.h"

namespace vela_twolame {

/// Bytes of a message with its end.
inline constexpr int message_bytes = 160;

/// The mode that was set, or the one that goes with the channels.
TWOLAME_MPEG_mode mode_of(const wishes &wished);

/// @param message  gets what is wrong and what would be right
/// @return whether there is an encoder for what was set
bool settle(const wishes &wished, mpeg_a_settings &settings, char (&message)[message_bytes]);

/// Of the longest frame; 0 where the rate or the bitrate does not exist.
int frame_bytes(const wishes &wished);

} // namespace vela_twolame
