// A stream frame by frame, decoded: subband samples and PCM, and the frames that are missing in between.
#pragma once

#include "velainfo/stream_input.hpp"
#include "velainfo/synthesis.hpp"

namespace tools {

/// One frame's worth of time.
struct decoded_frame {
    bool is_frame = false;    ///< false: what bytes outside of frames may have been
    bool valid = false;       ///< the frame's fields can be used
    std::uint64_t number = 0; ///< frames before it
    parsed_frame frame;
    frame_subbands subbands = {};
    int samples = 0; ///< per channel
    float pcm[2][1152] = {};
};

class frame_decoder {
  public:
    /// @param usual_bytes    of a frame
    /// @param usual_samples  of a frame
    /// @param channels       frames with another number are not decoded
    frame_decoder(const stream_name &stream, int usual_bytes, int usual_samples, int channels);

    /// None at the end. What cannot be decoded is silent.
    bool next(decoded_frame &out);

  private:
    void synthesize(decoded_frame &out);

    stream_input input_;
    unsigned usual_bytes_;
    int usual_samples_, channels_;
    frame_scanner scanner_;
    sample_codes codes_;
    synthesis_filterbank banks_[2];
    std::uint64_t number_ = 0, missing_ = 0;
    bool started_ = false;
};

} // namespace tools
