// A frame as the tuned coding sees it.
#pragma once

#include "coding/frame.hpp"
#include "coding/kernels.hpp"

namespace vela {

struct weighed_frame {
    const coding_kernels &kernels;
    const coder_config &config;
    const subband_samples &samples;
    part_samples *joint; ///< in joint stereo the shared samples, else unused
    const noise_weights &weights;
};

} // namespace vela
