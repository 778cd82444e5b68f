// The search for the allocation of a frame with the least cost.
#pragma once

#include "coding/tuned_costs.hpp"

namespace vela {

/// The search over one frame, with one bound after another.
///
/// The step with the greatest benefit a bit leads from one corner of a subband's lower convex hull of
/// (bits, cost) to the next, and benefits only fall from there. So as long as bits last, the search takes,
/// in some order, every step between corners that brings more than some common slope.
class tuned_search {
  public:
    /// True for the common slope of frames in which bits do not run out.
    static bool is_least(double slope) noexcept;

    /// @param costs  with those of no bits as they are when it is called
    tuned_search(const weighed_frame &frame, const frame_costs &costs) noexcept
        : config_(frame.config), kernels_(frame.kernels), costs_(costs),
          rows_(frame.config, frame.config.sblimit) {}

    /// Takes in one go what the search would take for certain: every step down to a slope whose steps
    /// all together are affordable, the last such slope of 8 an octave.
    /// @param available  bits beside header and allocation fields
    /// @param hint       where to look for that slope first; receives it
    void take_common_slope(int joint_bound, int available, double &hint) noexcept;

    /// The choices of every row that the common slope makes in all subbands, with whatever bound: [row].
    /// Joint stereo only.
    const unit_choices *choices_of_all() noexcept;

    /// Goes on step by step from there, exactly as the search would.
    void take_single_steps() noexcept;

    int available() const noexcept { return available_; }

    /// The quantizer of a subband, from 1 on, or 0: [row].
    int quantizer(int row, int sb) const noexcept {
        return static_cast<int>(tried_[chosen_][row].quantizer[sb]);
    }

  private:
    using row_choices = unit_choices[3]; ///< [row]

    /// Quantizers with bits for the slope at a place of the grid. What no bits cost has no part in them, nor
    /// the bound, so that they serve all searches through a frame.
    struct climb {
        int place;
        std::uint32_t own, shared; ///< groups of four subbands that are there
        row_choices choices;
    };

    const unit_choices *climbed(int place, const row_range &range) noexcept;
    reached reach(int place, const row_range &range, row_choices &found) noexcept;
    reached reach(int place, row_choices &found) noexcept;
    void find_steps(unit_steps *steps) const noexcept; ///< [row]

    const coder_config &config_;
    const coding_kernels &kernels_;
    const frame_costs &costs_;
    frame_rows rows_;
    int available_ = 0;
    static constexpr int most_climbs = 4;
    climb climbs_[most_climbs]; ///< the latest ones
    int climb_count_ = 0, oldest_ = 0;
    row_choices tried_[2]; ///< one of them is chosen, the other one free for the next try
    int chosen_ = 0;
    int place_ = 0; ///< of the chosen one
};

} // namespace vela
