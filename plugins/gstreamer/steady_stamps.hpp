#pragma once

#include <cstdint>
#include <gst/gst.h>

namespace velamp2 {

/// Stamps of the input without their jitter: as long as they stay within a tolerance of where the samples
/// since the first one put them, they are put there. A stamp further off is a jump, and the new beginning.
class steady_stamps {
  public:
    steady_stamps() = default;
    /// @param sample_bytes  of all channels
    steady_stamps(int rate, int sample_bytes) noexcept
        : bytes_per_second_(static_cast<std::uint64_t>(rate)
                            * static_cast<std::uint64_t>(sample_bytes)) {}

    void restart() noexcept { first_ = GST_CLOCK_TIME_NONE; }

    /// @param stamp  of the next samples; GST_CLOCK_TIME_NONE is left alone
    /// @param bytes  of them
    GstClockTime next(GstClockTime stamp, std::uint64_t bytes, GstClockTime tolerance) noexcept {
        if (bytes_per_second_ == 0) return stamp; // no format yet
        if (GST_CLOCK_TIME_IS_VALID(stamp)) {
            const bool is_first = !GST_CLOCK_TIME_IS_VALID(first_);
            const GstClockTime expected =
                (is_first ? 0 : first_) + gst_util_uint64_scale(bytes_, GST_SECOND, bytes_per_second_);
            if (is_first || (stamp > expected ? stamp - expected : expected - stamp) > tolerance) {
                first_ = stamp;
                bytes_ = 0;
            } else {
                stamp = expected;
            }
        }
        bytes_ += bytes;
        return stamp;
    }

  private:
    std::uint64_t bytes_per_second_ = 0;
    GstClockTime first_ = GST_CLOCK_TIME_NONE;
    std::uint64_t bytes_ = 0; ///< since then
};

} // namespace velamp2
