// The tuned psychoacoustic model: how much noise counts in each subband and part of a frame.
#pragma once

#include "psy/passes.hpp"
#include "psy/results.hpp"
#include "psy/tuned_tables.hpp"

namespace vela {

/// The model of one stream; docs/sound.md explains it. Per channel it keeps the excitations of the two
/// passes before, which mask what follows.
class tuned_model {
  public:
    using findings = noise_weights;

    void init(level which, int layer, int channels, int sample_rate) noexcept;

    /// Forgets all passes, as at the start of a stream.
    void restart() noexcept;

    int frames_at_once() const noexcept { return passes_.frames_at_once(); }

    /// Frames before one that its weights depend on: the two passes before mask it.
    int remembered_frames() const noexcept { return passes_.count == 2 ? 1 : 2; }

    /// Analyses consecutive frames, at most frames_at_once() of them.
    /// @param frame_start  of the first one, per channel, readable over the windows of frame_passes
    /// @param weights      a table for each; of it row c is written for every channel c
    void analyze(const float *const *frame_start, int frames, noise_weights *weights) noexcept;

  private:
    void analyze_group(const float *const *frame_start, frame_passes::group group,
                       noise_weights *weights) noexcept;

    frame_passes passes_;
    tuned_tables tables_;
    // Channels that do not stand side by side are one behind the other.
    double history_[2][2 * padded_partitions];
};

} // namespace vela
