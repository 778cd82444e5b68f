// Hears how loud a source is while it is encoded, where it can be read only once.
#pragma once

#include "input/source_filter.hpp"
#include "loudness/loudness_meter.hpp"

namespace tools {

class metered_source final : public source_filter {
  public:
    explicit metered_source(std::unique_ptr<pcm_source> source);

    std::span<const std::byte> next_block() override;
    bool seek(std::uint64_t) override { return false; } // it hears everything, once

    /// Of all that was read. Nothing can be read then.
    loudness_record finish() { return meter_.finish(); }

  private:
    programme_meter meter_;
    std::vector<float> values_;
};

} // namespace tools
