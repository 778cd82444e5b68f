// The search for the allocation of a frame with the least cost.
#pragma once

#include "coding/tuned_costs.hpp"

namespace vela {

/// The search over one frame with one bound.
///
/// The step with the greatest benefit a bit leads from one corner of a subband's lower convex hull of
/// (bits, cost) to the next, and benefits only fall from there. So as long as bits last, the search takes,
/// in some order, every step between corners that brings more than some common slope.
class tuned_search {
  public:
    /// True for the common slope of frames in which bits do not run out.
    static bool is_least(double slope) noexcept;

    /// @param available  bits beside header and allocation fields
    tuned_search(const weighed_frame &frame, const frame_costs &costs, int joint_bound,
                 int available) noexcept
        : kernels_(frame.kernels), costs_(costs), rows_(frame.config, joint_bound),
          available_(available), samples_(12 * frame.config.parts()) {}

    /// Takes in one go what the search would take for certain: every step down to a slope whose steps
    /// all together are affordable, the last such slope of 8 an octave.
    /// @param hint  where to look for that slope first; receives it
    void take_common_slope(double &hint) noexcept;

    /// Goes on step by step from there, exactly as the search would.
    void take_single_steps() noexcept;

    int available() const noexcept { return available_; }

    /// The quantizer of a subband, from 1 on, or 0: [row].
    int quantizer(int row, int sb) const noexcept {
        return static_cast<int>(choices_[row].quantizer[sb]);
    }

  private:
    reached reach(double slope) noexcept;
    void find_steps(unit_steps *steps) const noexcept; ///< [row]

    const coding_kernels &kernels_;
    const frame_costs &costs_;
    frame_rows rows_;
    int available_;
    int samples_; ///< of a subband
    unit_choices choices_[3];
};

} // namespace vela
