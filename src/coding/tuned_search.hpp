// The search for the allocation of a frame with the least cost.
#pragma once

#include "coding/frame.hpp"
#include "coding/noise_ladder.hpp"

#include <span>

namespace vela {

/// What one allocation field decides about: a channel's subband, or one that both channels share.
struct allocation_unit {
    const ladder *quantizers;
    std::uint8_t ch, sb; ///< channel 0 where they share
    std::uint8_t index;  ///< the allocation so far
};

/// The search over one frame with one bound.
///
/// The step with the greatest benefit a bit leads from one corner of a ladder's hull to the next, and
/// benefits only fall from there. So as long as bits last, the search takes, in some order, every step
/// between corners that brings more than some common slope.
class tuned_search {
  public:
    /// @param frame_bits  the whole frame
    tuned_search(const coder_config &config, const frame_ladders &ladders, int joint_bound,
                 int frame_bits) noexcept;

    /// What no allocation costs less than, by Lagrange: sum of (cost + slope bits) - slope available. The
    /// nearer the slope to the common one, the closer.
    double least_cost_at(double slope) const noexcept;

    /// Takes in one go what the search would take for certain: every step down to a slope whose steps
    /// all together are affordable.
    /// @param hint  where to look for that slope first; receives it
    void take_common_slope(double &hint) noexcept;

    /// Goes on step by step from there, exactly as the search would.
    void take_single_steps() noexcept;

    int available() const noexcept { return available_; }
    int joint_bound() const noexcept { return joint_bound_; }
    double cost() const noexcept;
    /// What the cost will not fall below, whatever single steps there are.
    double least_cost() const noexcept;
    std::span<const allocation_unit> units() const noexcept {
        return {units_, static_cast<std::size_t>(count_)};
    }

  private:
    void add(int ch, int sb, const ladder &quantizers) noexcept;

    std::span<allocation_unit> units() noexcept { return {units_, static_cast<std::size_t>(count_)}; }

    int count_ = 0;
    int joint_bound_;
    int available_;
    double slope_; ///< what brings as much a bit has been taken
    allocation_unit units_[64];
};

} // namespace vela
