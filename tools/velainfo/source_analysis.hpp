// The encoder's view of the source: subband samples and signal-to-mask ratios of a frame.
#pragma once

#include <memory>
#include <span>

namespace tools {

class source_analysis {
  public:
    /// @param has_model  false: no signal-to-mask ratios, whatever the rate
    source_analysis(int layer, int channels, int rate, bool has_model);
    ~source_analysis();

    /// @param pcm       interleaved, full scale 1.0, of one frame
    /// @param subbands  [channel][step][subband]
    /// @param smr       dB; left alone without a model
    void analyze(std::span<const float> pcm, double (&subbands)[2][36][32], double (&smr)[2][32]);

  private:
    struct state;
    std::unique_ptr<state> state_;
};

} // namespace tools
