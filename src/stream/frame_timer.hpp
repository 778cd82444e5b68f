// Frame length, padding and the running time stamp.
#pragma once

#include <cstdint>

namespace vela {

/// Sizes and times the frames of one stream.
///
/// A frame is a whole number of slots (ISO/IEC 11172-3, 2.4.2.1: four bytes in Layer I, one in Layer
/// II). At 44.1 kHz the exact length is not whole: an accumulator decides which frames carry one slot
/// more, so that the average is exact. At 48 and 32 kHz no frame is ever padded.
class frame_timer {
  public:
    /// @param layer       1 or 2
    /// @param start_time  27 MHz ticks
    /// @param khz         44.1, 48.0 or 32.0
    /// @param kbps        bitrate in kbit/s
    void init(int layer, std::int64_t start_time, double khz, double kbps) noexcept;

    /// Decides the next frame's padding, 0 or 1; once per frame, before the frame is coded.
    int decide_padding() noexcept;

    /// Length of the current frame in bits; always whole bytes.
    int frame_bits() const noexcept { return (whole_slots_ + padding_) * slot_bits_; }

    /// Adds one frame's duration and returns the new running time in 27 MHz ticks, truncated: the stamp
    /// of the frame just coded.
    std::int64_t advance_time() noexcept;

  private:
    double fraction_;
    double accumulator_;
    double running_time_;
    int whole_slots_;
    int padding_;
    int slot_bits_;
    int rate_;
    int samples_per_frame_;
};

} // namespace vela
