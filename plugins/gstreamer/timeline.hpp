#pragma once

#include <algorithm>
#include <cstdint>

namespace velamp2 {

/// Which samples of the input a decoder brings out of each frame. Encoder and decoder together delay
/// them:
///
///     input   0        N-D       2N-D      3N-D
///     frame   |<- 0 -->|<-- 1 -->|<-- 2 -->|       N samples each; the first D of all are none of ours
///
/// So the first frame is shorter by D samples, every later one begins D samples before the input that
/// completed it, and the last one ends with the input. In Layer I D is more than N; but decoders expect
/// a sample from every frame, so frame 0 stands for one that frame 1 then drops.
class timeline {
  public:
    timeline() = default;
    timeline(int frame_samples, int delay) noexcept : frame_(frame_samples), delay_(delay) {}

    void restart() noexcept { taken_ = given_ = frames_ = 0; }
    void take(std::int64_t samples) noexcept { taken_ += samples; }

    /// The decoded frame is `clip_start` samples to drop, `samples` of the input, `clip_end` to drop.
    struct share {
        int clip_start, samples, clip_end;
    };

    share next_frame() noexcept {
        const std::int64_t begin = frames_++ * frame_ - delay_, end = begin + frame_;
        const auto clip_start = std::min<std::int64_t>(given_ - begin, frame_ - 1);
        const auto samples = std::max<std::int64_t>(std::min(end, taken_) - given_, 1);
        given_ += samples;
        return {static_cast<int>(clip_start), static_cast<int>(samples),
                static_cast<int>(frame_ - clip_start - samples)};
    }

  private:
    int frame_ = 0, delay_ = 0;
    std::int64_t taken_ = 0, given_ = 0, frames_ = 0;
};

} // namespace velamp2
