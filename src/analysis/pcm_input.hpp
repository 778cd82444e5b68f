// From interleaved PCM bytes in blocks of any length to whole frames of samples per channel.
#pragma once

#include "analysis/kernels.hpp"

#include <cstddef>
#include <cstdint>
#include <span>

namespace vela {

/// Gathers frames and keeps the history that the filterbank and the psychoacoustic model look back on.
///
/// Samples are floats on the scale of 16-bit integers, whatever the input's width. Positions in a
/// channel's buffer:
///
///                0         640    704      1024 1088                      1792
///     Layer I    |---- history ---|-- newest ----|        (unused)          |
///     Layer II   |- history -|------------------ newest ---------------------|
///                            ^ frame_start
///
/// In Layer I frame_start lies 64 samples before the newest frame: the filterbank reads 640..1023 as
/// its newest samples, so the last 64 samples of each frame are analysed with the next one.
class pcm_input {
  public:
    static constexpr int frame_start_position = 640;
    static constexpr int buffer_length = 1792;

    /// @param sampling_bits  24: 24-bit integers; 32: floats with full scale 1.0; else 16-bit integers
    /// @param channels       1 or 2
    /// @param layer          1 or 2
    void init(const analysis_kernels &kernels, int sampling_bits, int channels, int layer) noexcept;

    /// PCM of a frame, all channels.
    std::size_t frame_bytes() const noexcept {
        return static_cast<std::size_t>(frame_samples_) * static_cast<std::size_t>(format_->width)
               * static_cast<std::size_t>(channels_);
    }

    /// Takes bytes from the front of `pcm` until a frame is complete or no whole sample is left; bytes
    /// of a cut sample are dropped. A frame may be gathered over many calls, and a block may end
    /// between the two channels of a pair.
    /// @param flush  true: take nothing and complete a partly gathered frame with silence
    /// @return true when frame_start() holds a new frame
    bool fill_frame(std::span<const std::uint8_t> &pcm, bool flush) noexcept;

    /// First sample of the current frame as the later stages count; readable from -640 to +1151 (Layer
    /// II) or +383 (Layer I).
    const float *frame_start(int channel) const noexcept {
        return buffer_[channel] + frame_start_position;
    }

  private:
    void take(std::span<const std::uint8_t> &pcm) noexcept;
    void make_room() noexcept;
    void pad() noexcept;

    float buffer_[2][buffer_length];
    const pcm_kernels *format_;
    int channels_;
    int frame_samples_; ///< per channel
    int newest_;        ///< position of the newest frame's first sample
    int gathered_;      ///< values of the frame being gathered, both channels counted
};

} // namespace vela
