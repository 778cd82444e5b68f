// Sound for what reads sources, without a file.
#pragma once

#include "common/failure.hpp"
#include "host/encoding.hpp"
#include "input/pcm_source.hpp"

#include <thread>

namespace velaenc_test {

/// PCM from memory in blocks of a given length, which lets others wait every now and then.
class memory_source final : public tools::pcm_source {
  public:
    memory_source(const mp1a_test::stream &how, const std::vector<std::uint8_t> &pcm,
                  std::size_t block_instants)
        : shape_{how.rate, how.channels(), static_cast<tools::sample_format>(how.width)},
          pcm_(std::as_bytes(std::span(pcm))), block_(block_instants * shape_.instant_bytes()) {}

    const tools::pcm_shape &shape() const noexcept override { return shape_; }
    std::optional<std::uint64_t> length() const noexcept override {
        if (seeks_ == seeks::nowhere) return std::nullopt;
        return (pcm_.size() + (seeks_ == seeks::beyond_the_end ? block_ : 0)) / shape_.instant_bytes();
    }
    bool seek(std::uint64_t sample) override {
        const bool late = seeks_ == seeks::late && sample > *length() / 2;
        const bool ends = seeks_ == seeks::failing || seeks_ == seeks::breaks;
        fails_ = ends && sample > *length() / 2;
        at_ = std::min((sample + (late ? 1 : 0)) * shape_.instant_bytes(), pcm_.size());
        return seeks_ != seeks::nowhere;
    }
    std::unique_ptr<pcm_source> another() const override {
        return seeks_ == seeks::nowhere ? nullptr : std::make_unique<memory_source>(*this);
    }
    std::span<const std::byte> next_block() override {
        if (fails_ && seeks_ == seeks::failing)
            throw tools::failure(tools::exit_code::input, "a damaged block");
        if (fails_ && std::this_thread::get_id() != maker_) throw std::bad_alloc();
        const auto block = pcm_.subspan(at_, std::min(block_, pcm_.size() - at_));
        at_ += block.size();
        return block;
    }
    /// How it looks to those who read in several places; what is wrong is so from half on.
    enum class seeks { nowhere, exactly, late, failing, breaks, beyond_the_end };
    memory_source that_seeks(seeks how) const {
        memory_source result = *this;
        result.seeks_ = how;
        return result;
    }
    bool ready_before(std::chrono::steady_clock::time_point) const override {
        return ++asked_ % 7 != 0;
    }

  private:
    tools::pcm_shape shape_;
    std::span<const std::byte> pcm_;
    std::size_t block_, at_ = 0;
    bool fails_ = false;
    seeks seeks_ = seeks::nowhere;
    mutable unsigned asked_ = 0;
    std::thread::id maker_ = std::this_thread::get_id();
};

} // namespace velaenc_test
