// Where the encode loop gets its PCM from: blocks of interleaved samples in a format the encoder takes.
#pragma once

#include "input/shared_work.hpp"
#include "input/speaker.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace tools {

/// The value is the number of bytes of a sample, and the encoder's pcm_format.
enum class sample_format { s16 = 2, s24 = 3, f32 = 4 };

struct pcm_shape {
    int rate; ///< Hz
    int channels;
    sample_format format;
    std::uint32_t channel_mask = 0; ///< of WAVE_FORMAT_EXTENSIBLE, 0 without one

    /// Bytes of one sampling instant: a sample of every channel.
    std::size_t instant_bytes() const noexcept {
        return static_cast<std::size_t>(format) * static_cast<std::size_t>(channels);
    }
};

/// Bytes of a block at most: large enough that a block's fixed costs vanish, small enough for the
/// cache.
inline constexpr std::size_t block_bytes = 64 * 1024;

class pcm_source {
  public:
    virtual ~pcm_source() = default;

    virtual const pcm_shape &shape() const noexcept = 0;

    /// Samples a channel, where that is known in advance.
    virtual std::optional<std::uint64_t> length() const noexcept = 0;

    /// The next whole instants, valid until the next call; empty at the end.
    /// @throws failure when the input cannot be read or ends before its time
    virtual std::span<const std::byte> next_block() = 0;

    /// Whether next_block() will have something to return by that time. Files always have.
    virtual bool ready_before(std::chrono::steady_clock::time_point) const { return true; }

    /// Has a crew do what can be done beside reading, until it is told another one.
    /// @param crew  null: none
    virtual void work_with(work_crew *) noexcept {}

    /// Where each channel belongs; empty where the input does not tell.
    virtual std::vector<speaker> speakers() const { return {}; }

    /// Makes the next block begin with that sample of every channel; at most length(). Returns false
    /// where the input cannot do that exactly; nothing has happened then.
    virtual bool seek(std::uint64_t) { return false; }

    /// Another reader of the same samples, from the start, for another thread. Both can seek. Null
    /// where there can be only one.
    virtual std::unique_ptr<pcm_source> another() const { return nullptr; }
};

} // namespace tools
