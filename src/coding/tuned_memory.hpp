// What the tuned coding of a frame remembers of the frames before it.
#pragma once

#include "coding/tuned_search.hpp"
#include "psy/tuned_parameters.hpp"

namespace vela {

/// A frame by itself: without regard to other frames, so that memories do not chain.
struct frame_by_itself {
    /// Subbands whose first bits take away more than a greater or a lesser share of what bits take away
    /// where they run out: by rows of frame_costs.
    std::uint32_t strong[3], weak[3];
    /// How much more the frame costs with each of joint_bounds and in stereo than with the best of them, as
    /// a part of that. Joint stereo only.
    double excess[5];
};

/// What passes from one frame of a stream to the next; a fresh one is as good at its start.
struct tuned_memory {
    /// Benefit a bit where the last frame's bits ran out, or anything: with its best bound, and with bound 8.
    double slope_hint = 1.0, bound_8_hint = 1.0;
    /// The latest frame first.
    frame_by_itself before[tuned::remembered_frames] = {};

    /// Frames that the next one depends on.
    static constexpr int frames = tuned::remembered_frames;
};

/// Looks at a frame by itself.
/// @param search      through the costs
/// @param frame_bits  that a frame has without padding
/// @param memory      its hints receive the benefits a bit where bits run out
frame_by_itself look_by_itself(const coder_config &config, const frame_costs &costs,
                               tuned_search &search, int frame_bits, tuned_memory &memory) noexcept;

/// The frame is the latest one from now on.
void remember(const frame_by_itself &frame, tuned_memory &memory) noexcept;

/// Makes bits worth more where a subband has had them in the frames remembered, and less where it has not.
/// @param frame_bits  as above
void favour_the_past(const weighed_frame &frame, int frame_bits, const tuned_memory &memory,
                     frame_costs &costs) noexcept;

/// The bound of a frame in joint stereo after those remembered; sblimit for stereo.
int choose_bound(const coder_config &config, const frame_by_itself &frame,
                 const tuned_memory &memory) noexcept;

} // namespace vela
