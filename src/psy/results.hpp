// What the models find out about one frame.
#pragma once

namespace vela {

/// Of the standard's model: signal-to-mask ratios in dB, [channel][subband].
using smr_table = double[2][32];

/// Of the tuned model, [channel][part][subband]: what the energy of noise is multiplied with to say how
/// audible it is, on a scale that is common to all channels and subbands of a frame. Layer I has one part.
using noise_weights = double[2][3][32];

} // namespace vela
