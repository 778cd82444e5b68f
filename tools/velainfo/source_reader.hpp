// The original as floats, at the stream's rate and on its channels, from any place that is not far behind.
#pragma once

#include "input/pcm_source.hpp"
#include "velainfo/alignment.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tools {

/// A source as velaenc takes it: what nobody here reads is left to ffmpeg, and of more than two channels a mixdown
/// to two is made.
/// @throws failure
std::unique_ptr<pcm_source> open_source(const std::string &path);

class source_reader {
  public:
    /// How far behind the furthest place that was read one may begin, in instants.
    static constexpr std::int64_t reach = std::int64_t{1} << 20;

    /// @param source          one or two channels
    /// @param channels, rate  of the stream; the source is mixed and resampled to them as velaenc does it
    source_reader(std::unique_ptr<pcm_source> source, int channels, int rate);

    int channels() const { return source_->shape().channels; }

    /// A channel is multiplied with `gain`; two are exchanged where they are `swapped`. From now on.
    void adjust(float gain, bool swapped);

    /// Interleaved samples of one or two channels, full scale 1.0; silence before the start and after
    /// the end.
    std::vector<float> read(std::int64_t first, std::size_t instants);

    /// The same by channel, as the source has them.
    channel_sound read_channels(std::int64_t first, std::size_t instants);

    /// Instants of the source, once that is known.
    std::optional<std::int64_t> length() const;

  private:
    bool refill();

    std::unique_ptr<pcm_source> source_;
    std::vector<float> held_, block_;
    std::int64_t held_first_ = 0; ///< position of the first instant held
    bool ended_ = false;
    float gain_ = 1;
    bool swapped_ = false;
};

} // namespace tools
