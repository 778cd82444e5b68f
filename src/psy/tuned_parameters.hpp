// The numbers that make the tuned model and its allocation what they are; docs/sound.md explains them.
#pragma once

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
inline constexpr double noise_before_attacks = 0.0001;
/// Power that 1 / threshold is raised to: noise far above what masks it counts a little less.
inline constexpr double weight_exponent = 0.95;

// ---- scale factors and allocation ----

/// What a bit more for each sample of a subband takes away of the logarithm of its noise: ln 4.
inline constexpr double noise_a_bit = 1.3862943611198906;
/// Six bits, a scale factor, weigh as much as noise of 36 samples grown by 4^(6 / 36): by scfsi.
inline constexpr double selection_price[4] = {2.0, 1.5874010519681994, 1.2599210498948732,
                                              1.5874010519681994};
/// In shared subbands, of the quantizer's noise alone: ln 4 / 6 of it for each scale factor.
inline constexpr double shared_selection_price = 0.231;
/// There, a quantizer in the middle between coarse and fine: noise of twelve samples for a scale factor
/// of 1.
inline constexpr double middle_quantizer_noise = 4.0 / 81;

/// A cost counts as less than another one below that part of it: where bits buy nothing, rounding must
/// not decide.
inline constexpr double less = 1 - 1e-9;

} // namespace vela::tuned
