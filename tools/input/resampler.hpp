// Another sampling rate, through libsoxr at its very high quality.
#pragma once

#include "input/source_filter.hpp"

struct soxr;

namespace tools {

/// The first samples of input and output lie at the same time, and so do the ends. Its samples are
/// floats. It reads on from the start only, since its filters remember what was before.
class resampler final : public source_filter {
  public:
    /// @param rate  Hz
    /// @throws failure when memory is out
    resampler(std::unique_ptr<pcm_source> source, int rate);

    std::optional<std::uint64_t> length() const noexcept override;
    std::span<const std::byte> next_block() override;
    bool ready_before(std::chrono::steady_clock::time_point time) const override;
    bool seek(std::uint64_t) override { return false; }

  private:
    struct deleter {
        void operator()(soxr *filter) const noexcept;
    };

    void feed();
    std::size_t drain();

    std::unique_ptr<soxr, deleter> filter_;
    std::vector<float> in_, out_;
    std::size_t used_ = 0; ///< floats of in_ that the filter has taken
    bool ended_ = false;   ///< the source has
};

} // namespace tools
