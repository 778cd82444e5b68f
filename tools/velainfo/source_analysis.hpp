// The encoder's view of the source: subband samples and signal-to-mask ratios of a frame.
#pragma once

#include <memory>
#include <span>

namespace tools {

class source_analysis {
  public:
    source_analysis(int layer, int channels, int rate);
    ~source_analysis();

    /// Instants of PCM that the next frame takes.
    int frame_samples() const;
    /// Where the encoder's first frame begins in the source when decoded sample 0 is source sample
    /// `offset`.
    std::int64_t first_sample(std::int64_t offset) const;

    /// @param pcm       interleaved, full scale 1.0, frame_samples() instants
    /// @param subbands  [channel][step][subband]
    /// @param smr       dB
    void analyze(std::span<const float> pcm, double (&subbands)[2][36][32], double (&smr)[2][32]);

  private:
    struct state;
    std::unique_ptr<state> state_;
};

} // namespace tools
