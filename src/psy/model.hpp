// Psychoacoustic model 2 (ISO/IEC 11172-3, D.2): one signal-to-mask ratio per subband, channel and
// frame.
#pragma once

#include "psy/kernels.hpp"
#include "psy/partitions.hpp"

namespace vela {

/// Signal-to-mask ratios in dB of one frame: [channel][subband].
using smr_table = smr_row[2];

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
    void init(const psy_kernels &kernels, int layer, int sample_rate) noexcept;

    /// @param frame_start  per channel, readable over the windows above
    /// @param smr          row c is written for every channel c below `channels`
    void analyze(const float *const *frame_start, int channels, smr_table &smr) noexcept;

  private:
    struct channel_state {
        pass_history history[2];
        lines previous_threshold;
        int newest; ///< which history holds the latest pass
    };

    void analyze_pass(channel_state &channel, const line_pairs &pairs, smr_row &ratio) noexcept;
    void line_thresholds(channel_state &channel, const double (&mask)[padded_partitions],
                         lines &threshold) noexcept;

    const psy_kernels *kernels_;
    const double *quiet_;
    int layer_;
    int passes_;
    int lead_; ///< samples before frame_start at which the first window begins
    int step_; ///< samples from one window to the next
    partition_tables tables_;
    channel_state channels_[2];
};

} // namespace vela
