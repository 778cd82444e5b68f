// Bit allocation: how finely each subband of each channel is quantized.
#pragma once

#include "coding/frame.hpp"

namespace vela {

/// Joint stereo only: labels the frame stereo when everything audible fits that way, else joint stereo
/// with the highest bound that fits (or the lowest bound), and sets side.joint_bound to match.
/// @param frame_bits  the whole frame
void choose_joint_bound(const coder_config &config, const smr_table &smr, int frame_bits,
                        frame_header &header, side_info &side) noexcept;

/// Bits that the frame would take if no noise were audible and both channels shared the subbands from
/// joint_bound on, as choose_joint_bound() counts them.
int demanded_bits(const coder_config &config, const smr_table &smr, const side_info &side,
                  int joint_bound) noexcept;

/// Distributes the frame's bits (ISO/IEC 11172-3, C.1.5.1.6 and C.1.5.2.7): time and again the subband
/// with the least mask-to-noise ratio gets the next finer quantizer, until nothing affordable is left.
/// Reads side.joint_bound and, in Layer II, side.scfsi; fills side.allocation.
/// @param ratio_hint  a mask-to-noise ratio in dB that most of the subbands may reach; receives the
///                    one that they do reach. Any value gives the same allocation: a good one, such
///                    as the last frame's, saves time.
/// @return bits left over; negative when not even header and allocation fields fit
int allocate_bits(const coder_config &config, const smr_table &smr, int frame_bits, side_info &side,
                  double &ratio_hint) noexcept;

} // namespace vela
