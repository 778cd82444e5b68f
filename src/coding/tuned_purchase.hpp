// How many scale factors an allocated frame's subbands send.
#pragma once

#include "coding/kernels.hpp"

namespace vela {

/// Spends the bits of a frame's scale factors anew. Every buyer, a subband of a channel, begins with one scale
/// factor; then again and again the step of some buyer to more of them is taken that takes away the most noise
/// for each of its bits, as long as it fits.
class tuned_purchase {
  public:
    struct buyer {
        int ch, sb;
        int sent; ///< scale factors
    };

    /// @param sent  what its share of the bits is for
    void add(int ch, int sb, int sent) noexcept { buyers_[count_++] = {ch, sb, sent}; }

    /// @param offers  of channels
    /// @param left    more bits
    /// @param slope   what a bit is worth about: where to begin, no more
    /// @return bits left over
    int buy(const scalefactor_offers (&offers)[2], int left, double slope) noexcept;

    const buyer *begin() const noexcept { return buyers_; }
    const buyer *end() const noexcept { return buyers_ + count_; }

  private:
    static constexpr int most_buyers = 2 * 32;

    struct step {
        double gain; ///< for each scale factor
        int to;
    };
    step next(int i, int room) const noexcept;
    int take_steps(double price) noexcept;
    int take_single_steps(double price, int room) noexcept;

    buyer buyers_[most_buyers];
    int count_ = 0;
    double second_[most_buyers], both_[most_buyers], third_[most_buyers];
};

} // namespace vela
