// PCM read straight from a file descriptor: headerless input, and WAV of the encoder's own formats.
#pragma once

#include "common/live_input.hpp"
#include "input/input_file.hpp"
#include "input/pcm_source.hpp"

#include <vector>

namespace tools {

class stream_source final : public pcm_source {
  public:
    /// @param head    PCM bytes already taken from the input
    /// @param bytes  of PCM that the input promises, `head` included, where it does
    /// @param rule   promise: exactly those are read
    stream_source(input_file input, const pcm_shape &shape, std::span<const std::byte> head,
                  std::optional<std::uint64_t> bytes, length_rule rule);

    const pcm_shape &shape() const noexcept override { return shape_; }
    std::optional<std::uint64_t> length() const noexcept override {
        return bytes_ ? std::optional(*bytes_ / shape_.instant_bytes()) : std::nullopt;
    }
    std::vector<speaker> speakers() const override {
        return masked_speakers(shape_.channel_mask, shape_.channels);
    }

    bool seek(std::uint64_t sample) override;

    /// Hands out what a read brings instead of waiting for a full block, so that live input is encoded
    /// as it comes.
    std::span<const std::byte> next_block() override;
    bool ready_before(std::chrono::steady_clock::time_point time) const override;

  private:
    bool refill();

    /// On a pipe, behind what was promised: more sound where the promise was wrong, or other chunks.
    bool goes_on();
    void check_end();

    input_file input_;
    pcm_shape shape_;
    std::optional<std::uint64_t> bytes_; ///< that the input promises
    off_t start_ = 0;                    ///< of the PCM, where the input is seekable
    std::optional<live_input> live_;     ///< where nobody promised a length, or the pipe's end
    length_rule rule_;
    std::uint64_t left_; ///< bytes that may still be read
    bool padded_;        ///< an odd number of bytes is followed by another one
    std::uint64_t handed_out_ = 0;
    std::vector<std::byte> buffer_;
    std::size_t filled_ = 0; ///< bytes in the buffer
    std::size_t used_ = 0;   ///< bytes at its start that the last block covered
};

} // namespace tools
