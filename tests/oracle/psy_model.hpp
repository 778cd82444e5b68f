// Psychoacoustic model 2 of ISO/IEC 11172-3, D.2, in the order of its steps: plain DFT, phases by
// arctangent, full spreading matrix. The threshold in quiet is the encoder's own table, which another
// test checks; partitions and spreading are worked out here from the critical band edges.
#pragma once

#include <complex>
#include <vector>

namespace oracle {

class psy_model {
  public:
    psy_model(int layer, int rate);

    /// @param frame_start  readable from -640 to +383 (Layer I) or -448 to +1151 (Layer II)
    void analyze(const float *frame_start, int channel, double (&smr)[32]);

    int partitions() const { return static_cast<int>(mean_bark_.size()); }

  private:
    struct channel_state {
        std::vector<std::complex<double>> before = std::vector<std::complex<double>>(513);
        std::vector<std::complex<double>> two_before = std::vector<std::complex<double>>(513);
        std::vector<double> limit = std::vector<double>(513, 60802371420160.0);
    };

    void lay_partitions();
    double spreading(int maskee, int masker) const;
    std::vector<double> masks(const std::vector<double> &energy, const std::vector<double> &c) const;
    void pass(const float *samples, channel_state &channel, double (&ratio)[32]);

    int layer_, rate_;
    std::vector<int> partition_of_line_, lines_of_partition_;
    std::vector<double> mean_bark_;
    channel_state channels_[2];
};

} // namespace oracle
