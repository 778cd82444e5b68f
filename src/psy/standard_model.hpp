// Psychoacoustic model 2 (ISO/IEC 11172-3, D.2): one signal-to-mask ratio per subband, channel and
// frame.
#pragma once

#include "psy/passes.hpp"
#include "psy/results.hpp"
#include "psy/standard_tables.hpp"

namespace vela {

/// The model of one stream; frame_passes says where it looks.
///
/// Per channel it keeps the two passes before for the unpredictability and, in Layer I, the thresholds
/// of the pass before against pre-echo.
class standard_model {
  public:
    using findings = smr_table;

    void init(level which, int layer, int channels, int sample_rate) noexcept;

    /// Forgets all passes, as at the start of a stream.
    void restart() noexcept;

    int frames_at_once() const noexcept { return passes_.frames_at_once(); }

    /// Frames before one that its ratios depend on. A pass is compared with the two before it: in Layer II
    /// those of the frame before. Layer I also compares its thresholds with those of the pass before,
    /// which in turn had two before it.
    int remembered_frames() const noexcept { return passes_.count == 2 ? 1 : 3; }

    /// Analyses consecutive frames, at most frames_at_once() of them.
    /// @param frame_start  of the first one, per channel, readable over the windows of frame_passes
    /// @param smr          a table for each; of it row c is written for every channel c
    void analyze(const float *const *frame_start, int frames, smr_table *smr) noexcept;

  private:
    void analyze_group(const float *const *frame_start, frame_passes::group group,
                       smr_table *smr) noexcept;

    frame_passes passes_;
    standard_tables tables_;
    // Channels that do not stand side by side are one behind the other.
    double history_[2][2 * history_values];
    double thresholds_[2][line_count];
};

} // namespace vela
