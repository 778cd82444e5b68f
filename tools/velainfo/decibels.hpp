// Powers as decibels.
#pragma once

#include <algorithm>
#include <cmath>

namespace tools {

/// A level in dB of full scale, -120 for silence.
template <class Real>
Real level_of(Real power) {
    return std::max<Real>(-120, 10 * std::log10(power));
}

/// 10 lg of a power or of a ratio of powers, -150 for nothing and what is no number: 24 bits hold no less.
inline double decibels(double power) {
    return std::max(-150.0, 10 * std::log10(power));
}

/// A signal above its noise, at most 150 dB.
inline double signal_to_noise(double signal, double noise) {
    return std::min(decibels(signal / noise), 150.0);
}

/// Whether a sample exceeds what integers hold.
constexpr bool is_clipped(float x) {
    return x >= 1.0F || x < -1.0F;
}

} // namespace tools
