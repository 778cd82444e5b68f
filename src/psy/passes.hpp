// The passes over a frame, as both models make them, and their places in the kernels' lanes.
#pragma once

#include "psy/kernels.hpp"

#include <algorithm>

namespace vela {

/// Layer I looks at a frame once, Layer II twice, each time through a window of 1024 samples (positions
/// relative to frame_start):
///
///     Layer I     -640 .. 383
///     Layer II    -448 .. 575    and    128 .. 1151
struct frame_passes {
    static constexpr int most_frames_at_once = max_lanes;

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

        /// The group's part of a history of all channels.
        /// @param length  of a channel's history
        double *part_of(double *history, int length) const noexcept {
            return history + first_channel * length;
        }
    };

    /// As many consecutive frames as fill the lanes, 1 to most_frames_at_once.
    int frames_at_once() const noexcept {
        const psy_kernels &kernels = psy_kernels_of(which, channels, max_lanes);
        return std::max(kernels.lanes / kernels.channels / count, 1);
    }

    /// Makes a history of one or two channels that of a stream's start.
    /// @param length    of a channel's history
    /// @param values    how many there are of a pass
    /// @param value_of  value_of(i) is value i then
    template <class Value>
    void clear(double *history, int length, int values, Value value_of) const {
        const int together = length / values * psy_kernels_of(which, channels, 1).channels;
        for (int i = 0; i < channels * length / together; ++i)
            std::fill_n(history + i * together, together, value_of(i % values));
    }

    /// Calls analyze(group) for all groups of consecutive frames, an earlier pass of any channel before a
    /// later one. Passes are counted from the first frame's first one.
    template <class Analyze>
    void for_each_group(int frames, Analyze analyze) const {
        for (int pass = 0; pass < frames * count;) {
            const psy_kernels &kernels = psy_kernels_of(which, channels, frames * count - pass);
            for (int c = 0; c < channels; c += kernels.channels)
                analyze(group{kernels, c, pass});
            pass += kernels.lanes / kernels.channels;
        }
    }

    /// @param frame_start  of the first frame, per channel, readable over the windows of all frames
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
