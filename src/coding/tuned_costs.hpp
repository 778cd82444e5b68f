// What the quantizers of a frame's subbands cost in bits and in noise.
#pragma once

#include "coding/tuned_scalefactors.hpp"

namespace vela {

/// The costs of a frame: of every subband in every channel, and of those that may be shared.
struct frame_costs {
    /// The channels' rows, and behind them that of what they share, from the first bound on.
    unit_costs rows[3];
    static constexpr int shared = 2;

    static int count(const coder_config &config) noexcept;

    void find_own(const weighed_frame &frame, int ch, const own_scalefactors &own) noexcept;
    /// Mixes the shared samples, too.
    void find_shared(const weighed_frame &frame, const own_scalefactors (&own)[2],
                     const sent_scalefactors (&chosen)[2]) noexcept;
};

/// Subbands first .. end - 1, both multiples of 4, of consecutive rows.
struct row_range {
    int row, rows, first, end;
};

/// What the allocation fields of a frame with a bound decide about.
struct frame_rows {
    row_range ranges[2];
    int count;

    frame_rows(const coder_config &config, int joint_bound) noexcept;

    const row_range *begin() const noexcept { return ranges; }
    const row_range *end() const noexcept { return ranges + count; }
};

} // namespace vela
