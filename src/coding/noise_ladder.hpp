// What the quantizers of one subband cost in bits and in noise.
#pragma once

#include "coding/alloc_tables.hpp"
#include "coding/kernels.hpp"
#include "coding/weighed_frame.hpp"

#include <cstdint>

namespace vela {

/// The quantizers of a subband by allocation index, and those among them that are worth stopping at:
/// the corners of the lower convex hull of (bits, cost), from no bits on.
class ladder {
  public:
    /// @param costs         of all subbands
    /// @param opening_bits  what any bits at all cost beside the samples
    void build(const alloc_row &row, const noise_costs &costs, int sb, int opening_bits) noexcept;

    int bits(int index) const noexcept { return bits_[index]; }
    double cost(int index) const noexcept { return cost_[index]; }

    /// The corner up to which every bit takes away at least `slope` of the cost, which is above 0.
    int corner_reaching(double slope) const noexcept {
        int i = 0;
        while (slope_[i] >= slope)
            ++i;
        return corner_[i];
    }

    struct step {
        double slope; ///< cost taken away by each bit; 0 when there is no such step
        int to;
    };
    /// Of the steps from an index that take away cost and want no more bits than that, the one with the
    /// greatest slope, the shortest one of equals.
    step best_step(int from, int affordable) const noexcept;

  private:
    void find_corners() noexcept;

    int last_;
    std::int16_t bits_[16];
    double cost_[16];
    std::uint8_t corner_[16];
    double slope_[16]; ///< from corner i to the next one; 0 behind the last
};

/// The ladders of a frame: of every subband in every channel, and of those that may be shared.
struct frame_ladders {
    ladder own[2][32];
    ladder shared[32]; ///< from the first bound on

    void build_own(const weighed_frame &frame, const channel_scalefactors &used) noexcept;
    /// @param joint_index  of the scale factors that normalise the shared samples
    void build_shared(const weighed_frame &frame, const channel_scalefactors &used,
                      const std::uint8_t (&joint_index)[3][32]) noexcept;
};

} // namespace vela
