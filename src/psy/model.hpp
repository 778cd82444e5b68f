// Psychoacoustic model 2 (ISO/IEC 11172-3, D.2): one signal-to-mask ratio per subband, channel and
// frame.
#pragma once

#include "psy/kernels.hpp"
#include "psy/partitions.hpp"

namespace vela {

/// Signal-to-mask ratios in dB of one frame: [channel][subband].
using smr_table = double[2][32];

/// The model of one stream. Layer I looks at a frame once, Layer II twice, each time through a window
/// of 1024 samples (positions relative to frame_start):
///
///     Layer I     -640 .. 383
///     Layer II    -448 .. 575    and    128 .. 1151
///
/// Per channel it keeps the two passes before for the unpredictability and, in Layer I, the thresholds
/// of the pass before against pre-echo.
class psy_model {
  public:
    void init(level kernels, int layer, int channels, int sample_rate) noexcept;

    /// Forgets all passes, as at the start of a stream.
    void restart() noexcept;

    /// @param frame_start  per channel, readable over the windows above
    /// @param smr          row c is written for every channel c
    void analyze(const float *const *frame_start, smr_table &smr) noexcept;

  private:
    /// The passes that one run of the kernels analyses: lane t is pass first_pass + t % passes of
    /// channel first_channel + t / passes.
    struct lane_group {
        int index; ///< of the group's channels
        int first_channel;
        int first_pass;
    };

    void analyze_group(const float *const *frame_start, lane_group group, smr_table &smr) noexcept;

    const psy_kernels *kernels_;
    int layer_;
    int channels_;
    int passes_;
    int lead_;   ///< samples before frame_start at which the first window begins
    int step_;   ///< samples from one window to the next
    int newest_; ///< with one pass per lane group: the half of the history that is the latest
    partition_tables tables_;
    // Lane groups one behind the other; what they need adds up to the same for every arrangement.
    double history_[history_values * max_lanes];
    double previous_threshold_[line_count * 2];
};

} // namespace vela
