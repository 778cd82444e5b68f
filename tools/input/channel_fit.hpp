// Makes the channels of the input those of the stream: a mixdown to one or a duplicate for two.
#pragma once

#include "input/pcm_source.hpp"

#include <memory>
#include <vector>

namespace tools {

/// Turns two channels into one or one into two.
class channel_fit final : public pcm_source {
  public:
    /// @param source  one or two channels
    explicit channel_fit(std::unique_ptr<pcm_source> source);

    const pcm_shape &shape() const noexcept override { return shape_; }
    std::optional<std::uint64_t> length() const noexcept override { return source_->length(); }
    std::span<const std::byte> next_block() override;
    bool ready_before(std::chrono::steady_clock::time_point time) const override {
        return source_->ready_before(time);
    }

  private:
    std::unique_ptr<pcm_source> source_;
    pcm_shape shape_;
    std::vector<std::byte> buffer_;
};

/// Returns `source` itself when it has that many channels.
std::unique_ptr<pcm_source> fit_channels(std::unique_ptr<pcm_source> source, int channels);

} // namespace tools
