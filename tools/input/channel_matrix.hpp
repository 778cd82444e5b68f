// Channels as weighted sums of channels: mixdowns, gains, swapped sides.
#pragma once

#include "input/source_filter.hpp"

namespace tools {

/// A row for each channel that comes out: the factor of every channel that goes in.
using gain_matrix = std::vector<std::vector<double>>;

gain_matrix unity_gains(int channels);

/// To left and right by ITU-R BS.775: the centre and each surround channel 3 dB lower on its side, one
/// surround channel 6 dB lower on both, the low-frequency channel left out; all of it lowered so far
/// that no sum exceeds full scale.
/// @return empty when one of the channels has no place in that
gain_matrix bs775_gains(const std::vector<speaker> &from);

/// By how much a speaker goes to its side, or to both where it stands in the middle.
struct speaker_factor {
    speaker where = speaker::other;
    double factor = 0;
};

/// The same with factors of one's own in place of the recommendation's, the low-frequency channel's among them. Nothing
/// is lowered.
gain_matrix own_gains(const std::vector<speaker> &from, std::span<const speaker_factor> own);

/// Weighs and adds. Its samples are floats, which hold the bit that a mean has more than 24-bit integers.
class channel_matrix final : public source_filter {
  public:
    /// @param gains  its rows are as long as the source has channels
    channel_matrix(std::unique_ptr<pcm_source> source, gain_matrix gains);

    std::span<const std::byte> next_block() override;
    std::vector<speaker> speakers() const override { return {}; }
    std::unique_ptr<pcm_source> another() const override { return another_like(*this, gains_); }

  private:
    gain_matrix gains_;
    std::optional<double> gain_; ///< is all that there is to them
    std::vector<float> in_, out_;
};

/// A source of one or two channels with so many: their mean, or one for both. `source` itself where it has them.
std::unique_ptr<pcm_source> fit_channels(std::unique_ptr<pcm_source> source, int channels);

} // namespace tools
