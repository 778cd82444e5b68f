// The tuned allocation: bits for the least weighted noise.
#pragma once

#include "coding/tuned_memory.hpp"

namespace vela {

/// A frame's scale factors and costs.
struct tuned_frame {
    own_scalefactors own[2];
    sent_scalefactors shared[2]; ///< in joint stereo
    frame_costs costs;
};

/// Finds a frame's scale factors and costs, whatever other frames are.
/// @param side  peaks' scale factors and joint_index are given
void weigh_frame(const weighed_frame &frame, const side_info &side, tuned_frame &found) noexcept;

/// Distributes the frame's bits: time and again the step of some subband, to any finer quantizer, that
/// takes the most cost away for each of its bits and still fits. Cost is weighted noise: of three steps as
/// it is with the best scale factors, of five, seven and nine as it is with those of the largest samples,
/// or of shared samples as they are mixed for theirs, of finer ones as step^2 / 12. What no bits cost, and
/// in joint stereo the bound, depends on the frames before, too. Then scale factors are refined, as many as
/// their bits are worth, and shared samples mixed again. Fills all of side; header.mode and mode_extension are set to match.
/// @param frame_bits  the whole frame, which has room for header and allocation fields, as every bitrate
///                    that the settings may have gives it
/// @return bits left over
int allocate_tuned(const weighed_frame &frame, int frame_bits, frame_header &header,
                   tuned_frame &weighed, side_info &side, tuned_memory &memory) noexcept;

/// What allocate_tuned() would make of the memory, without a frame allocated.
void pass_tuned(const weighed_frame &frame, int frame_bits, const frame_header &header,
                const tuned_frame &weighed, tuned_memory &memory) noexcept;

} // namespace vela
