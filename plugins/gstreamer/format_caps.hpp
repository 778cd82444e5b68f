#pragma once

#include "settings/record.hpp"

#include <gst/gst.h>

namespace velamp2 {

void add_pad_templates(GstElementClass *element_class);

/// What the sink pad takes with these wishes: the preset's rates and the mode's number of channels, two
/// only as left and right or without places. A bitrate that does not fit takes nothing away: the stream then fails with the encoder's own message.
/// @return caps of the caller's
GstCaps *offered_caps(const tools::wishes &wished);

/// The layer that downstream takes, II where it takes both.
int layer_for(GstPad *source_pad);

/// @return caps of the caller's
GstCaps *stream_caps(const mpeg_a_settings &settings, int rate);

} // namespace velamp2
