// The tuned choice of scale factors.
#pragma once

#include "coding/weighed_frame.hpp"

namespace vela {

/// Layer II: chooses for every channel and subband below sblimit how many scale factors are sent. Six
/// bits are worth a sixth of what halves the amplitude of the noise of 36 samples, 1 dB: so of all
/// selections the one with the least of (weighted noise) * 4^(bits / 36) is taken. Sets the indexes to
/// what a decoder will use.
void choose_tuned_scfsi(const coder_config &config, const noise_weights &weights,
                        channel_scalefactors &chosen) noexcept;

/// Scale factors of subbands that the channels share, from the first bound on. There they do not limit
/// a channel's samples but scale the shared ones: those are taken that come closest to the channel's
/// own samples in the least squares' sense, in Layer II again weighing the bits that they take.
/// @param joint_index  index of each part's scale factor that normalises them
void choose_shared_scalefactors(const weighed_frame &frame, const std::uint8_t (&joint_index)[3][32],
                                channel_scalefactors &chosen) noexcept;

} // namespace vela
