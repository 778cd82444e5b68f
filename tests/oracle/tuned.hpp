// The tuned way as docs/sound.md words it: sums over lines, and searches that try every step.
#pragma once

#include "oracle/steps.hpp"

#include <vector>

namespace oracle {

/// The tuned model of one channel.
class tuned_model {
  public:
    tuned_model(int layer, int rate);

    /// @param frame_start  as psy_model::analyze has it
    /// @param weights      of noise, by part and subband
    void analyze(const float *frame_start, double (&weights)[3][32]);

  private:
    void pass(const float *samples, double (&weights)[32]);
    double sum_of(const std::vector<double> &lines, int p) const;
    double middle(int p) const;
    std::vector<double> excitation(const std::vector<double> &energy) const;
    double masking(int p) const;
    double quietest_before(int p) const;
    double threshold(int p, double masking) const;

    int layer_;
    double df_, fading_;
    int count_; ///< of partitions
    std::vector<int> of_line_;
    std::vector<double> dz_, norm_;
    std::vector<std::vector<double>> before_; ///< the latest first
};

/// Left, right and what subbands share, half their sum: samples, and the scale factors of their maxima.
struct tuned_problem : allocation_problem {
    double weights[2][3][32] = {}, samples[3][36][32] = {};
    int index[3][32][3] = {};
};

/// With what is sent of scale factors.
struct tuned_answer : allocation_answer {
    int scfsi[2][32] = {}, index[2][32][3] = {};

    bool operator==(const tuned_answer &) const = default;
};

tuned_answer allocate(const tuned_problem &problem);

} // namespace oracle
