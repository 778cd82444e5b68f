// The polyphase analysis filterbank over a frame.
#pragma once

#include "analysis/kernels.hpp"

namespace vela {

/// One frame of subband samples, full scale 1.0: [channel][part][sample][subband]. Layer II fills three
/// parts of twelve samples, Layer I part 0.
using subband_samples = double[2][3][12][32];

/// Splits `parts` * 12 time steps of each channel into 32 subbands. The newest sample of step n is
/// frame_start[channel][32 n + 31]; the 480 samples of history are those before it, so the filterbank
/// has no state.
void analyze_frame(const analysis_kernels &kernels, const float *const *frame_start, int channels,
                   int parts, subband_samples &out) noexcept;

} // namespace vela
