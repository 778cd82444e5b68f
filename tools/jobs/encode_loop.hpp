// PCM in, frames out, on one thread.
#pragma once

#include "input/pcm_source.hpp"
#include "jobs/clip_count.hpp"
#include "jobs/progress.hpp"
#include "output/frame_writer.hpp"
#include "vela_enc_mp1a/settings.h"

namespace vela {
struct frame_observer;
}

namespace tools {

/// Encodes the whole source and writes every block's frames at once: somebody may be waiting for them.
/// @throws failure when the input fails; a failed output just ends the loop, and its file knows why
encoded_sound encode(pcm_source &source, const mpeg_a_settings &settings, frame_writer &writer,
                     progress_listener &shown);

/// The same, and the observer sees what decided every frame.
encoded_sound encode_observed(pcm_source &source, const mpeg_a_settings &settings, frame_writer &writer,
                              progress_listener &shown, const vela::frame_observer &observer);

/// The same through the plug-in interface: an engine and a sink of ours.
encoded_sound encode_through_engine(pcm_source &source, const mpeg_a_settings &settings,
                                    frame_writer &writer, progress_listener &shown);

} // namespace tools
