// The tuned allocation: bits for the least weighted noise.
#pragma once

#include "coding/weighed_frame.hpp"

namespace vela {

/// Distributes the frame's bits: time and again the step of some subband, to any finer quantizer, that
/// takes the most cost away for each of its bits and still fits. Cost is weighted noise: noise of the
/// coarse quantizers as it is, of the finer ones as step^2 / 12.
/// In joint stereo that is done for stereo and for every bound, and the least cost of the frame
/// decides; header.mode and mode_extension and side.joint_bound are set to match. Reads the scale
/// factors; fills side.allocation. Never costs more than what allocate_bits() makes of the same costs.
/// @param frame_bits  the whole frame, which has room for header and allocation fields, as every bitrate
///                    that the settings may have gives it
/// @param slope_hint  benefit a bit where the last frame's bits ran out, or anything above 0: the result
///                    is the same; receives this frame's
/// @return bits left over
int allocate_tuned(const weighed_frame &frame, int frame_bits, frame_header &header, side_info &side,
                   double &slope_hint) noexcept;

} // namespace vela
