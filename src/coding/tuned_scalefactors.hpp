// The tuned choice of scale factors.
#pragma once

#include "coding/weighed_frame.hpp"

namespace vela {

/// The scale factors of a channel's subbands with samples of their own: by what quantizes them.
struct own_scalefactors {
    part_values weight;         ///< the channel's, 0 for parts that there are not
    part_values energy;         ///< of the samples
    part_scalefactors peaks[3]; ///< the smallest ones that no sample exceeds
    part_scalefactors used[3]; ///< with more than three steps, before they are refined; without indexes
    sent_scalefactors ternary; ///< for three steps
    sent_scalefactors finer;   ///< for the other quantizers, likewise
    double ternary_cost[32];   ///< weighted noise of three steps
};

/// Values of scale factors.
void look_up(const std::uint8_t (&index)[32], part_scalefactors &values) noexcept;

/// Chooses for every subband of a channel how many scale factors are sent, in Layer II, and which. Six
/// bits are worth a sixth of what halves the amplitude of the noise of 36 samples, 1 dB: so of all
/// selections the one with the least of (weighted noise) * 4^(bits / 36) is taken. With three steps the
/// noise is exact, and of all scale factors from two steps above the peak to three below the best ones
/// are taken; with others it is that of a uniform error with the peaks' scale factors.
/// @param peaks  indexes of the parts' peaks
void choose_own_scalefactors(const weighed_frame &frame, int ch, const std::uint8_t (&peaks)[3][32],
                             own_scalefactors &chosen) noexcept;

/// Scale factors of subbands that the channels share, from the first bound on. There they do not limit
/// a channel's samples but scale the shared ones: those are taken that come closest to the channel's
/// own samples in the least squares' sense, in Layer II again weighing the bits that they take. The shared
/// ones are half the sum of both as yet.
/// @param peaks  indexes of the shared samples' peaks
void choose_shared_scalefactors(const weighed_frame &frame, const own_scalefactors (&own)[2],
                                const std::uint8_t (&peaks)[3][32],
                                sent_scalefactors (&chosen)[2]) noexcept;

/// Makes of the shared samples, from subband `first` on, those that the scale factors of both channels decode
/// to the least weighted noise.
shared_parts mix(const weighed_frame &frame, const own_scalefactors (&own)[2],
                 const part_values &index0, const part_values &index1, int first) noexcept;

/// Moves the scale factors of an allocated frame to where the exact noise of the samples that they scale
/// is least, and buys as many for each subband as are worth their bits: all together take as many bits as
/// before, and those that are left. Own ones, of more than three steps: from one step above the peak to two
/// below. Shared ones: anywhere; then shared samples are mixed again.
/// @param left   bits, in Layer II for more scale factors
/// @param slope  benefit a bit where the frame's bits ran out
/// @return bits left over
int refine_scalefactors(const weighed_frame &frame, const own_scalefactors (&own)[2],
                        const sent_scalefactors (&shared)[2], int left, double slope,
                        side_info &side) noexcept;

} // namespace vela
