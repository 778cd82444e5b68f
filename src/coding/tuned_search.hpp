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
    /// @param hint   where to look for that slope first; receives it
    /// @param known  choices() of another search at the slope of the hint, or null
    void take_common_slope(double &hint, const unit_choices *known = nullptr) noexcept;

    /// The choices of every row that the common slope makes in all subbands, with whatever bound: [row].
    /// Joint stereo only.
    /// @param known  as above; at another slope then
    const unit_choices *choices_of_all(const unit_choices *known, double slope_of_known) noexcept;

    /// Goes on step by step from there, exactly as the search would.
    void take_single_steps() noexcept;

    int available() const noexcept { return available_; }

    /// The quantizer of a subband, from 1 on, or 0: [row].
    int quantizer(int row, int sb) const noexcept {
        return static_cast<int>(tried_[chosen_][row].quantizer[sb]);
    }

  private:
    using row_choices = unit_choices[3]; ///< [row]

    reached reach(double slope, const unit_choices *coarse, const unit_choices *fine,
                  const row_range &range, row_choices &found) const noexcept;
    reached reach(double slope, const unit_choices *coarse, const unit_choices *fine,
                  row_choices &found) const noexcept;
    void find_steps(unit_steps *steps) const noexcept; ///< [row]

    const coding_kernels &kernels_;
    const frame_costs &costs_;
    frame_rows rows_;
    int available_;
    int samples_; ///< of a subband
    /// The chosen one is affordable; the others are beyond that, or free for the next try.
    row_choices tried_[3];
    int chosen_ = 0;
    double slope_ = 0; ///< of the chosen one
};

} // namespace vela
