// Hears sound and writes down how loud it is.
#pragma once

#include "loudness/loudness_record.hpp"
#include "loudness/true_peak.hpp"
#include "loudness/weighting.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tools {

/// One part of a programme, or all of it.
class loudness_meter {
  public:
    /// Samples a channel of what comes before a part that should be heard first, so that the weighting's
    /// filters have settled: 200 ms.
    static std::uint64_t lead(int rate) noexcept { return static_cast<std::uint64_t>(rate) / 5; }

    /// @param channels  one or two; a single one counts once, as R 128 has it
    /// @param rate      Hz, a multiple of 100
    loudness_meter(int channels, int rate);

    /// What comes before the part: whole instants, interleaved, full scale 1.
    void lead_in(std::span<const float> samples);

    /// The part itself, in pieces of any size.
    void add(std::span<const float> samples);

    /// What was heard; a last step that is not whole does not count. Nothing can be added then.
    /// @param is_end  silence follows, not another part
    loudness_record finish(bool is_end);

  private:
    std::size_t step_length_; ///< samples of all channels
    std::size_t in_step_ = 0;
    double step_instants_;
    weighting weighting_;
    true_peak peak_;
    loudness_record record_;
};

/// A programme from its start to its end. It is heard in parts of a fixed length, so that others who hear
/// the parts side by side write down the same.
class programme_meter {
  public:
    static constexpr int part_seconds = 60;
    static std::uint64_t part_length(int rate) noexcept {
        return static_cast<std::uint64_t>(part_seconds) * static_cast<std::uint64_t>(rate);
    }

    programme_meter(int channels, int rate);
    void add(std::span<const float> samples);
    loudness_record finish();

  private:
    int channels_, rate_;
    std::size_t left_; ///< samples of all channels up to the end of the part
    loudness_meter part_;
    std::vector<float> lead_; ///< the last ones heard
    loudness_record record_;
};

} // namespace tools
