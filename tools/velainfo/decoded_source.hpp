// A stream as PCM, decoded here.
#pragma once

#include "input/pcm_source.hpp"
#include "velainfo/frame_decoder.hpp"

namespace tools {

/// Frames that are damaged or have another number of channels than most are silent.
class decoded_source final : public pcm_source {
  public:
    /// @param report  of the whole stream
    decoded_source(const stream_name &stream, const stream_report &report)
        : shape_{.rate = report.usual(stream_report::rate),
                 .channels = report.usual_channels(),
                 .format = sample_format::f32},
          decoder_(stream, report) {}

    const pcm_shape &shape() const noexcept override { return shape_; }
    std::optional<std::uint64_t> length() const noexcept override { return std::nullopt; }

    std::span<const std::byte> next_block() override {
        block_.clear();
        if (!decoder_.next(frame_)) return {};
        for (int n = 0; n < frame_.samples; ++n)
            for (int ch = 0; ch < shape_.channels; ++ch)
                block_.push_back(frame_.pcm[ch][n]);
        return std::as_bytes(std::span(block_));
    }

  private:
    pcm_shape shape_;
    frame_decoder decoder_;
    decoded_frame frame_{};
    std::vector<float> block_;
};

} // namespace tools
