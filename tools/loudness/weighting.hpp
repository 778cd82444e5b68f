// The weighting of ITU-R BS.1770-4: what a sound has of what an ear calls loud.
#pragma once

#include <cstddef>
#include <span>

namespace tools {

/// A recursive filter of second order, its first coefficient below the line being 1.
struct biquad {
    double b0, b1, b2, a1, a2;
};

/// The two filters of annex 1, tables 1 and 2, which are those of 48 kHz, with the same response at another rate.
struct weighting_filters {
    biquad shelf, high_pass;
};
weighting_filters weighting_at(int rate);

/// Weighs one or two channels, side by side in one register, and adds up their squares.
class weighting {
  public:
    weighting(int channels, int rate) : filters_(weighting_at(rate)), channels_(channels) {}

    /// Whole instants, interleaved. The sum does not depend on the pieces that they come in.
    void add(std::span<const float> samples) noexcept;

    /// The squares since the last call, of all channels. What is no number, or beyond all sound, counts as
    /// silence, and is forgotten.
    double take_energy() noexcept;

  private:
    typedef double pair __attribute__((vector_size(2 * sizeof(double))));

    template <int channels>
    void add_channels(std::span<const float> samples) noexcept;

    weighting_filters filters_;
    int channels_;
    pair shelf_[2]{}, high_pass_[2]{}; ///< what the filters remember, the latest first
    pair sum_{};
};

} // namespace tools
