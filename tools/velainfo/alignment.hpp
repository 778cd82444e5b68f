// Where a decoded stream lies in its source.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tools {

/// Sound of one or two channels, a vector each.
using channel_sound = std::vector<std::vector<float>>;

struct alignment {
    std::int64_t lag;   ///< decoded[n] is like source[n + lag]
    double correlation; ///< normalized over what overlaps, -1 .. 1; below 0 the polarity is inverted
    bool swapped;       ///< left is like the source's right
};

/// The lag of the greatest correlation, normalized by the level of both at every lag. Of places that are
/// about as good the one nearest to `expected` is taken, of signs and sides those that are not exchanged.
/// None where both are silent.
/// @param decoded, source  the same number of channels, at least one sample
/// @param lowest, highest  lags between which it lies; at none of them the two lie apart
std::optional<alignment> align(const channel_sound &decoded, const channel_sound &source,
                               std::int64_t expected, std::int64_t lowest, std::int64_t highest);

/// Sums over what overlaps at a lag.
struct sound_products {
    double both;            ///< of the products of the two
    double decoded, source; ///< of the squares of each
};
sound_products products_of(const channel_sound &decoded, const channel_sound &source, std::int64_t lag,
                           bool swapped);

} // namespace tools
