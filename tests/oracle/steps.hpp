// The steps of an encoder as ISO/IEC 11172-3 words them: plain sums, one search per decision. The
// window and the threshold in quiet are the encoder's own tables, which other tests check.
#pragma once

#include <complex>

namespace oracle {

/// C.1.3, windowing and matrixing. `newest` is a sample on the 16-bit scale; 511 more precede it.
void analyze(const float *newest, double (&subbands)[32]);

/// Psychoacoustic model 2, D.2: plain DFT, phases by arctangent, full spreading matrix of the band edges.
class psy_model {
  public:
    psy_model(int layer, int rate);

    /// @param frame_start  readable from -640 to +383 (Layer I) or -448 to +1151 (Layer II)
    void analyze(const float *frame_start, int channel, double (&smr)[32]);

  private:
    /// Of the spreading matrix at every rate, and its columns; those without lines sit at 0 bark.
    static constexpr int rows = 63;

    struct channel_state {
        std::complex<double> before[513] = {}, two_before[513] = {};
        double limit[513];
    };

    void mask(const double (&energy)[513], const double (&c)[513], double (&threshold)[513]) const;
    void pass(const float *samples, channel_state &channel, double (&ratio)[32]);

    int layer_, rate_, partitions_ = 1;
    int partition_of_line_[513], lines_of_partition_[rows] = {};
    double bark_[rows] = {}, spreading_[rows][rows]; ///< [maskee][masker]
    channel_state channels_[2];
};

/// C.1.5.1.4: the smallest scale factor not below the maximum, by looking at every one.
int scalefactor_index(double maximum);

/// C.1.5.2.5, Table C.4. Returns scfsi and changes the three indexes to what the decoder will use.
int select_scalefactors(int (&index)[3]);

/// C.1.5.1.7 and C.1.5.2.6: the first bits of A x + B, the very first inverted; at most the highest code.
int quantize(int layer, double x, int steps);

struct allocation_problem {
    int layer, channels;
    bool crc, joint;  ///< joint: joint stereo is configured
    char table = 'a'; ///< Layer II
    int budget = 0;   ///< bits of the frame
    double smr[2][32] = {};
    int scfsi[2][32] = {};
};

struct allocation_answer {
    int mode = 0, extension = 0; ///< meaningful when joint stereo is configured
    int bound = 0, left = 0;
    int allocation[2][32] = {};

    bool operator==(const allocation_answer &) const = default;
};

/// Bits that the frame would need with a bound if no noise were audible.
int noiseless_bits(const allocation_problem &problem, int bound);

/// The choice of the joint stereo bound, then the grants.
allocation_answer allocate(const allocation_problem &problem);
/// C.1.5.1.6 (Layer I) or C.1.5.2.7 (Layer II) for the answer's bound: allocation and what is left.
void grant(const allocation_problem &problem, allocation_answer &answer);

} // namespace oracle
