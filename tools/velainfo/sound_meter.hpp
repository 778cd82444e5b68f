// Listens to a stream while it is read: loudness, level, silence, phase, clipping.
#pragma once

#include "loudness/loudness_meter.hpp"
#include "velainfo/sound_report.hpp"
#include "velainfo/synthesis.hpp"

#include <memory>

namespace tools {

class sound_meter {
  public:
    /// The next frame. Damaged ones are silent, and so are those of another rate or number of channels than
    /// the first sound one; what follows them stays at its time.
    void add(const parsed_frame &frame, const sample_codes &codes);

    /// Of the last frame; zeros where it was silent.
    const frame_subbands &subbands() const { return subbands_; }

    sound_report finish();

  private:
    void start(const parsed_frame &frame);
    void hear(const float (&pcm)[2][32]);
    void end_silence();

    std::unique_ptr<programme_meter> loudness_; ///< null before the first sound frame
    int rate_;
    synthesis_filterbank banks_[2];
    frame_subbands subbands_ = {};
    std::vector<float> heard_;
    sound_report report_{};
    std::uint64_t samples_ = 0, start_, silent_since_; ///< the last two: of the first sound frame on
    double energy_[2] = {}, product_ = 0;
    float peak_[2] = {};
};

} // namespace tools
