// The decoder's half of the codec: from a parsed frame to subband samples and to PCM.
#pragma once

#include "parser/frame_parser.hpp"

namespace tools {

/// Subband samples of a frame, full scale 1.0: [channel][time step][subband]; 36 steps in Layer II, 12
/// in Layer I.
using frame_subbands = float[2][36][32];

/// 2.4.3.2 and 2.4.3.3: samples times scale factors, intensity stereo included.
void requantize(const parsed_frame &frame, const sample_codes &codes, frame_subbands &out);

/// The polyphase synthesis filterbank of one channel (2.4.3.2.2 and 3-A.2).
class synthesis_filterbank {
  public:
    /// 32 subband samples to 32 samples of PCM, full scale 1.0.
    void step(const float (&subbands)[32], float (&pcm)[32]);

  private:
    float v_[1024] = {}; ///< a ring of sixteen blocks of 64
    int newest_ = 0;     ///< block
};

} // namespace tools
