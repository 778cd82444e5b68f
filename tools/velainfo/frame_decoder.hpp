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
    parsed_frame frame{};
    frame_subbands subbands = {};
    int samples = 0; ///< per channel
    float pcm[2][1152] = {};
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
    bool started_ = false;
};

} // namespace tools
