// A stream frame by frame, decoded: subband samples and PCM, and the frames that are missing in between.
#pragma once

#include "velainfo/stream_input.hpp"
#include "velainfo/synthesis.hpp"

namespace tools {

/// One frame's worth of time.
struct decoded_frame {
    bool is_frame;        ///< false: what bytes outside of frames may have been
    bool valid;           ///< the frame's fields can be used
    std::uint64_t number; ///< frames before it
    parsed_frame frame;
    frame_subbands subbands;
    int samples;        ///< per channel
    float pcm[2][1152]; ///< a channel that is not there is silent
};

class frame_decoder {
  public:
    /// @param report  of the whole stream; frames with another number of channels than most are not decoded
    frame_decoder(const stream_name &stream, const stream_report &report);

    /// None at the end. What cannot be decoded is silent.
    bool next(decoded_frame &out);

  private:
    void synthesize(decoded_frame &out);

    stream_input input_;
    std::uint64_t usual_bytes_; ///< of a frame
    int usual_samples_, channels_;
    frame_scanner scanner_;
    sample_codes codes_;
    synthesis_filterbank banks_[2];
    std::uint64_t number_ = 0, missing_ = 0;
};

} // namespace tools
