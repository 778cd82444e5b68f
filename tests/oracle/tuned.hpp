// The tuned way as docs/sound.md words it: sums over lines, and searches that try every step.
#pragma once

#include "oracle/steps.hpp"

#include <algorithm>
#include <span>
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

/// What later frames remember of one: by channels, and what they share, and subbands; by bounds.
struct tuned_past {
    bool strong[3][32] = {}, weak[3][32] = {};
    double excess[5] = {};

    bool operator==(const tuned_past &other) const {
        return std::ranges::equal(std::span(&strong[0][0], 96), std::span(&other.strong[0][0], 96))
               && std::ranges::equal(std::span(&weak[0][0], 96), std::span(&other.weak[0][0], 96));
    }
};

/// Left, right and what subbands share, half their sum: samples, and the scale factors of their maxima.
struct tuned_problem : allocation_problem {
    double weights[2][3][32] = {}, samples[3][36][32] = {};
    int index[3][32][3] = {};
    int padding = 0;                ///< bits of the budget
    std::vector<tuned_past> before; ///< the latest frame first
};

/// With what is sent of scale factors, and remembered.
struct tuned_answer : allocation_answer {
    int scfsi[2][32] = {}, index[2][32][3] = {};
    tuned_past now;

    bool operator==(const tuned_answer &) const = default;
};

/// A subband of a channel, the scale factors that it sends, the noise with one, two, three of them, and with none.
struct buyer {
    int count;
    double noise[4], energy;
};

/// Spends the bits of scale factors, and those left, anew.
void buy(std::vector<buyer> &buyers, int &left);

/// Of subbands that are shared, samples and scale factors become those that are quantized.
tuned_answer allocate(tuned_problem &problem);

} // namespace oracle
