// The passes over a frame, as both models make them, and their places in the kernels' lanes.
#pragma once

#include "psy/kernels.hpp"

namespace vela {

/// Layer I looks at a frame once, Layer II twice, each time through a window of 1024 samples (positions
/// relative to frame_start):
///
///     Layer I     -640 .. 383
///     Layer II    -448 .. 575    and    128 .. 1151
struct frame_passes {
    level which;
    int channels;
    int count; ///< passes of a channel in a frame
    int lead;  ///< samples before frame_start at which the first window begins
    int step;  ///< samples from one window to the next

    /// What one run of the kernels analyses: consecutive passes of one or two channels.
    struct group {
        const psy_kernels &kernels;
        int first_channel, first_pass;

        int channel_of(int lane) const noexcept { return first_channel + lane % kernels.channels; }
        int pass_of(int lane) const noexcept { return first_pass + lane / kernels.channels; }

        /// The group's part of a history of all channels, which is updated in place.
        /// @param values  of the passes that the history keeps of a channel
        pass_history part_of(double *history, int values) const noexcept {
            double *const first = history + first_channel * values;
            return {first, first};
        }
    };

    /// Channels that stand side by side in all groups.
    int side_by_side() const noexcept { return psy_kernels_of(which, channels, 1).channels; }

    /// Calls analyze(group) for all groups of a frame, an earlier pass of any channel before a later one.
    template <class Analyze>
    void for_each_group(Analyze analyze) const {
        for (int pass = 0; pass < count;) {
            const psy_kernels &kernels = psy_kernels_of(which, channels, count - pass);
            for (int c = 0; c < channels; c += kernels.channels)
                analyze(group{kernels, c, pass});
            pass += kernels.lanes / kernels.channels;
        }
    }

    /// @param frame_start  per channel, readable over the windows above
    /// @param spectrum     1024 * lanes doubles, see psy_kernels::transform
    void transform(const float *const *frame_start, group g, double *spectrum) const noexcept {
        const float *windows[max_lanes] = {};
        for (int t = 0; t < g.kernels.lanes; ++t)
            windows[t] = frame_start[g.channel_of(t)] - lead + g.pass_of(t) * step;
        g.kernels.transform(windows, spectrum);
    }
};

inline frame_passes make_frame_passes(level which, int layer, int channels) noexcept {
    if (layer == 1) return {which, channels, 1, 640, 384};
    return {which, channels, 2, 448, 576};
}

} // namespace vela
