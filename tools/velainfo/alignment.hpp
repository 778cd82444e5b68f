// Where a decoded stream lies in its source.
#pragma once

#include <cstdint>
#include <span>

namespace tools {

struct alignment {
    std::int64_t lag = 0;   ///< decoded[n] is like source[n + lag]
    double correlation = 0; ///< normalized, at that lag
};

/// The lag of the greatest correlation, through Fourier transforms.
/// @param decoded, source  one channel each, at least one sample
alignment align(std::span<const float> decoded, std::span<const float> source);

} // namespace tools
