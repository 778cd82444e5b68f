// Makes the channels of the input those of the stream: a mixdown to one or a duplicate for two.
#pragma once

#include "input/source_filter.hpp"

namespace tools {

/// Turns two channels into one or one into two.
class channel_fit final : public source_filter {
  public:
    /// @param source  one or two channels
    explicit channel_fit(std::unique_ptr<pcm_source> source);

    std::span<const std::byte> next_block() override;
    std::unique_ptr<pcm_source> another() const override { return another_like(*this); }

  private:
    std::vector<std::byte> buffer_;
};

/// Returns `source` itself when it has that many channels.
std::unique_ptr<pcm_source> fit_channels(std::unique_ptr<pcm_source> source, int channels);

} // namespace tools
