// A source over another one that it owns, an instant out for every instant in.
#pragma once

#include "input/pcm_source.hpp"

#include <utility>

namespace tools {

class source_filter : public pcm_source {
  public:
    const pcm_shape &shape() const noexcept override { return shape_; }
    std::optional<std::uint64_t> length() const noexcept override { return source_->length(); }
    bool ready_before(std::chrono::steady_clock::time_point time) const override {
        return source_->ready_before(time);
    }
    void work_with(work_crew *crew) noexcept override { source_->work_with(crew); }
    std::vector<speaker> speakers() const override { return source_->speakers(); }
    bool seek(std::uint64_t sample) override { return source_->seek(sample); }

  protected:
    explicit source_filter(std::unique_ptr<pcm_source> source)
        : source_(std::move(source)), shape_(source_->shape()) {}

    pcm_source &source() const noexcept { return *source_; }

    /// For another(): a filter made as this one was, over another reader.
    template <class Filter, class... Arguments>
    std::unique_ptr<pcm_source> another_like(const Filter &, const Arguments &...arguments) const {
        auto reader = source_->another();
        return reader ? std::make_unique<Filter>(std::move(reader), arguments...) : nullptr;
    }

  private:
    std::unique_ptr<pcm_source> source_;

  protected:
    pcm_shape shape_; ///< of what comes out; at first of what goes in
};

} // namespace tools
