// From interleaved PCM bytes in blocks of any length to whole frames of samples per channel.
#pragma once

#include "analysis/kernels.hpp"
#include "simd/table.hpp"

#include <cstddef>
#include <cstdint>
#include <span>

namespace vela {

/// Gathers frames and keeps the history that the filterbank and the psychoacoustic models look back on.
///
/// Samples are floats on the scale of 16-bit integers, whatever the input's width. In a channel's buffer:
///
///                  -704   -64 0            384          768
///     Layer I    ---|------|--|-- newest ---|-- newest --|--
///                          ^ frame_start     ^ of the next one
///
///                     -640    0                              1152
///     Layer II   ------|------|------------ newest -----------|--
///                             ^ frame_start
///
/// In Layer I frame_start lies 64 samples before a frame: the filterbank reads up to 319 as its newest
/// samples, so the last 64 samples of each frame are analysed with the next one.
class pcm_input {
  public:
    /// @param sampling_bits  24: 24-bit integers; 32: floats with full scale 1.0; else 16-bit integers
    /// @param channels       1 or 2
    /// @param layer          1 or 2
    void init(const analysis_kernels &kernels, int sampling_bits, int channels, int layer) noexcept;

    /// PCM of a frame, all channels.
    std::size_t frame_bytes() const noexcept {
        return static_cast<std::size_t>(frame_samples_) * static_cast<std::size_t>(format_->width)
               * static_cast<std::size_t>(channels_);
    }

    /// Takes whole frames from the front of `pcm`, at most `wanted` of them; when there is no whole one,
    /// what there is of it. Bytes of a cut sample are dropped. A frame may be gathered over many calls, and
    /// a block may end between the two channels of a pair.
    /// @param flush  true: take nothing and complete a partly gathered frame with silence
    /// @return how many new frames frame_start() holds
    int fill_frames(std::span<const std::uint8_t> &pcm, bool flush, int wanted = 1) noexcept;

    /// First samples of a new frame, per channel, as the later stages count; readable from -640 to +1151
    /// (Layer II) or +383 (Layer I), and on over the new frames behind it.
    table<const float *, 2> frame_start(int frame) const noexcept {
        const float *const first = buffer_ + newest_ - lead_ + frame * frame_samples_;
        return {first, first + (channels_ - 1) * room()};
    }

  private:
    /// New values that it holds at once, of all channels: those of eight passes, which fill any level's lanes.
    static constexpr int most_new_values = 4608;

    /// Samples that a channel has room for; the second one stands behind the first.
    int room() const noexcept { return buffer_size / channels_; }
    void take(std::span<const std::uint8_t> &pcm, int wanted) noexcept;
    void make_room() noexcept;
    void pad() noexcept;

    // Frames move through the buffer; only where it ends the history goes back to its front.
    static constexpr int buffer_size = 2 * (640 + most_new_values);
    float buffer_[buffer_size];
    const pcm_kernels *format_;
    int channels_;
    int frame_samples_; ///< per channel
    int history_;       ///< samples before the first new frame
    int lead_;          ///< of them, those from frame_start on
    int newest_;        ///< position of the first new frame's first sample
    int frames_;        ///< new frames; they become history when the next one is gathered
    int gathered_;      ///< values of the frame being gathered, both channels counted
};

} // namespace vela
