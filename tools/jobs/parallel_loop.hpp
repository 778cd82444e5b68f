// PCM in, frames out, on several threads.
#pragma once

#include "input/pcm_source.hpp"
#include "jobs/clip_count.hpp"
#include "jobs/progress.hpp"
#include "jobs/thread_budget.hpp"
#include "output/frame_writer.hpp"
#include "vela_enc_mp1a/settings.h"

namespace tools {

struct division {
    int jobs; ///< threads at most

    /// Long enough that the look back at a segment's start costs little (below 1% of the work; 3% at
    /// 64), short enough that clips of some seconds still use several threads.
    std::size_t segment_frames = 256;

    /// Where all threads but the first are taken from; null: there are enough.
    thread_budget *spare = nullptr;
};

/// As encode(), with the same result. The source is cut into segments that are encoded side by side;
/// their number in memory at a time is limited.
encoded_sound encode_in_parallel(pcm_source &source, const mpeg_a_settings &settings,
                                 frame_writer &writer, progress_listener &shown, const division &how);

} // namespace tools
