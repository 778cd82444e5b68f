// Quantizes the samples of a frame.
#pragma once

#include "coding/frame.hpp"

namespace vela {

/// Codes of every subband that has bits; above side.joint_bound channel 0 carries the codes of `joint`,
/// the sum of both channels, which exists in joint stereo only.
void quantize_samples(const coding_kernels &kernels, const coder_config &config, const side_info &side,
                      const subband_samples &samples, const part_samples *joint,
                      sample_codes &codes) noexcept;

} // namespace vela
