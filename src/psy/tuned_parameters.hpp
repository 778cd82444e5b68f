// The numbers that make the tuned model and its allocation what they are; docs/sound.md explains them.
#pragma once

#include "simd/table.hpp"

#include <algorithm>

namespace vela::tuned {

// ---- the model ----

/// How what masks fades towards other frequencies, dB a Bark.
inline constexpr double upward_slope = 10, downward_slope = 27;
/// And with time: what is left of an excitation after 12 ms, a pass of Layer II at 48 kHz.
inline constexpr double fading_a_pass = 0.35;
/// How far a threshold lies below the excitation: dB, and so many more for each Bark above a place.
inline constexpr double offset_db = 3, offset_slope = 0.25, offset_from_bark = 12;

/// Threshold in quiet: the energy of 0 dB in a band of a width in Bark, and an exponent between the usual
/// 4, which leaves too little of 16 kHz, and what the ear models of measurements have.
inline constexpr double quiet_at_0_db = 15266.4, quiet_width = 0.25, quiet_exponent = 3.65;
/// What noise at the threshold in quiet may have beside, dB.
inline constexpr double quiet_allowance_db = 3;

/// What a part's noise counts where it precedes an attack: the filterbank spreads it to samples that only
/// the thresholds of the passes before mask.
inline constexpr double noise_before_attacks = 0.00015;
/// Power that 1 / threshold is raised to: noise far above what masks it counts a little less.
inline constexpr double weight_exponent = 0.95;

// ---- scale factors and allocation ----

/// Six bits, a scale factor, weigh as much as noise of 36 samples grown by 4^(6 / 36): by scfsi.
inline constexpr double selection_price[4] = {2.0, 1.5874010519681994, 1.2599210498948732,
                                              1.5874010519681994};
/// In shared subbands, of the quantizer's noise alone: ln 4 / 6 of it for each scale factor.
inline constexpr double shared_selection_price = 0.231;
/// There, a quantizer in the middle between coarse and fine: noise of twelve samples for a scale factor
/// of 1.
inline constexpr double middle_quantizer_noise = 4.0 / 81;

/// What moving scale factors to the least exact error leaves, on average, of the noise of those that go
/// by the largest sample; of shared subbands, whose samples are mixed for their scale factors, more.
inline constexpr double left_by_refining = 0.85, left_by_refining_shared = 0.95;

/// What is decoded with less energy than there was counts as so much more noise, from a subband on (9.75
/// kHz of 48): scale factors of the least error are too low for it.
inline constexpr double lost_energy = 0.2;
inline constexpr int lost_energy_from = 13;
inline constexpr table<double, 32> weight_of_lost = [] {
    table<double, 32> made{};
    std::fill(made.begin() + lost_energy_from, made.end(), lost_energy);
    return made;
}();

/// Noise counts as less than other noise below that part of it: where there is a choice of equals, rounding
/// must not decide.
inline constexpr double less = 1 - 1e-9;
/// And a scale factor is worth nothing that takes away less than that part of the energy.
inline constexpr double least_gain = 1e-12;

// ---- memory ----

/// Frames before one that it depends on.
inline constexpr int remembered_frames = 8;

/// What a subband's first bits must take away, in that what bits take away where a frame's run out, to keep
/// them: so much for each bit that there is for a sample, from a place on, within limits. Where bits are many,
/// fewer subbands change.
inline constexpr double weak_a_bit = 0.42, weak_from_bits = 0.7, least_weak = 0.35, most_weak = 0.7;
/// And to have bits where it had none: the more, the less it takes to keep them. Where the other channel had
/// bits, it is 1.
inline constexpr double strong = 1.55, strong_a_weak = 0.65;

/// How much each frame before counts of the one after it when a bound is chosen, and the most that any
/// counts: an attack gets its bound.
inline constexpr double bound_memory = 0.9, most_bound_memory = 0.05;

} // namespace vela::tuned
