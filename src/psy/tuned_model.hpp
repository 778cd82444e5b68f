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

    /// Frames before one that its weights depend on: the two passes before mask it.
    int remembered_frames() const noexcept { return passes_.count == 2 ? 1 : 2; }

    /// @param frame_start  per channel, readable over the windows of frame_passes
    /// @param weights      row c is written for every channel c
    void analyze(const float *const *frame_start, noise_weights &weights) noexcept;

  private:
    void analyze_group(const float *const *frame_start, frame_passes::group group,
                       noise_weights &weights) noexcept;

    frame_passes passes_;
    int newest_; ///< with one pass per lane group: the half of the history that is the latest
    tuned_tables tables_;
    // Lane groups one behind the other; what they need adds up to the same for every arrangement.
    double history_[padded_partitions * max_lanes];
};

} // namespace vela
