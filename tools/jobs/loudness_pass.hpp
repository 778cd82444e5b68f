// A first pass over a source: how loud it is.
#pragma once

#include "input/pcm_source.hpp"
#include "jobs/progress.hpp"
#include "loudness/loudness_record.hpp"

namespace tools {

/// Hears a source from its start to its end, on several threads where it can be read in several places.
/// What it writes down does not depend on their number. The source cannot be read again afterwards.
///
/// @param source  of a rate and of channels that the encoder takes
/// @param jobs    threads at most, this one among them
/// @param shown   is told how many samples were heard
/// @throws failure when the source cannot be read
loudness_record hear_source(pcm_source &source, int jobs, progress_listener &shown);

} // namespace tools
