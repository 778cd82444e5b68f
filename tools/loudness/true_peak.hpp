// The true peak of ITU-R BS.1770-4, annex 2: the largest value of a sound that is sampled four times as often.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace tools {

class true_peak {
  public:
    /// @param channels  one or two
    explicit true_peak(int channels);

    /// What comes before the sound, in pieces of any size, too: values between it and the sound count.
    void lead_in(std::span<const float> samples);

    /// Whole instants, interleaved, in pieces of any size.
    void add(std::span<const float> samples);

    /// The largest magnitude of a sample, and of a value between samples that has all its neighbours. What is no
    /// number does not count. Nothing can be added then.
    /// @param is_end  silence follows
    float finish(bool is_end);

    /// A value between two samples is a sum over six on each side.
    static constexpr std::size_t taps = 12;

  private:
    /// Whether a value can matter is asked for so many instants at a time. What came before is kept for twice as
    /// many: the last of them may reach back, so that none is smaller.
    static constexpr std::size_t group = 16, kept = 2 * group, capacity = kept + 32 * group;

    void look();

    std::size_t channels_;
    std::vector<float> values_; ///< those that are kept, then new ones
    std::size_t filled_;
    float peak_ = 0;
};

} // namespace tools
