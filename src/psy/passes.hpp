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
    const psy_kernels *kernels;
    int channels;
    int count; ///< passes of a channel in a frame
    int lead;  ///< samples before frame_start at which the first window begins
    int step;  ///< samples from one window to the next

    /// The passes that one run of the kernels analyses: lane t is pass first_pass + t % passes of
    /// channel first_channel + t / passes.
    struct group {
        int index; ///< of the group's channels
        int first_channel;
        int first_pass;
    };

    int channel_of(group g, int lane) const noexcept {
        return g.first_channel + lane / kernels->passes;
    }
    int pass_of(group g, int lane) const noexcept { return g.first_pass + lane % kernels->passes; }

    /// Calls analyze(group) for all groups, an earlier pass of any channel before a later one, and
    /// end_pass() after all channels.
    template <class Analyze, class EndPass>
    void for_each_group(Analyze analyze, EndPass end_pass) const {
        const int group_channels = kernels->lanes / kernels->passes;
        for (int pass = 0; pass < count; pass += kernels->passes) {
            for (int c = 0; c < channels; c += group_channels)
                analyze(group{c / group_channels, c, pass});
            end_pass();
        }
    }

    /// @param frame_start  per channel, readable over the windows above
    /// @param spectrum     1024 * lanes doubles, see psy_kernels::transform
    void transform(const float *const *frame_start, group g, double *spectrum) const noexcept {
        const float *windows[max_lanes] = {};
        for (int t = 0; t < kernels->lanes; ++t)
            windows[t] = frame_start[channel_of(g, t)] - lead + pass_of(g, t) * step;
        kernels->transform(windows, spectrum);
    }
};

inline frame_passes make_frame_passes(level which, int layer, int channels) noexcept {
    const psy_kernels *const kernels = &psy_kernels_of(which, layer, channels);
    if (layer == 1) return {kernels, channels, 1, 640, 384};
    return {kernels, channels, 2, 448, 576};
}

} // namespace vela
