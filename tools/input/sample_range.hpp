// A part of a source, and silence behind it.
#pragma once

#include "input/source_filter.hpp"

#include <string>

namespace tools {

class sample_range final : public source_filter {
  public:
    /// All in samples a channel.
    struct extent {
        std::uint64_t first;
        std::optional<std::uint64_t> count = std::nullopt; ///< at most; none: to the end
        std::uint64_t silence = 0;                         ///< behind it
    };

    /// @param too_short  what the failure says when the source ends before `first`
    sample_range(std::unique_ptr<pcm_source> source, const extent &part, std::string too_short);

    std::optional<std::uint64_t> length() const noexcept override;
    std::span<const std::byte> next_block() override;
    bool ready_before(std::chrono::steady_clock::time_point time) const override;
    bool seek(std::uint64_t sample) override;
    std::unique_ptr<pcm_source> another() const override {
        return another_like(*this, part_, too_short_);
    }

  private:
    /// Samples of the source that belong to the part, where that is known.
    std::optional<std::uint64_t> sound() const noexcept;
    void skip_to_first();
    std::span<const std::byte> next_sound();
    std::span<const std::byte> next_silence();

    extent part_;
    std::string too_short_;
    bool begun_ = false;       ///< the source stands inside the part
    std::uint64_t sound_left_; ///< samples that may still come from the source
    std::uint64_t silence_left_;
    std::span<const std::byte> rest_; ///< of a block that began before the part
};

} // namespace tools
