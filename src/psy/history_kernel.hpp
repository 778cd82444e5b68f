// The values of earlier passes that a kernel compares its own with.
#pragma once

#include "psy/kernels.hpp"
#include "simd/lanes.hpp"

namespace vela::VELA_LEVEL {

/// A value one and two passes before that of each lane.
template <class V>
struct earlier {
    V before1, before2;
};

/// Reads value i of the two passes before those in the lanes of `now`, and leaves the last two of all of
/// them to the passes that follow.
template <class V, int channels>
VELA_INLINE earlier<V> exchange(double *history, int i, V now) {
    double *const kept = history + 2 * i * channels;
    if constexpr (lanes<V> == channels) {
        const V before2 = load<V>(kept), before1 = load<V>(kept + channels);
        store(kept, before1);
        store(kept + channels, now);
        return {before1, before2};
    } else {
        const V before2 = joined<V, 2 * channels>(load_first<V, 2 * channels>(kept), now);
        store_last<V, 2 * channels>(kept, now);
        return {passed_on<V, channels>(before2, now), before2};
    }
}

/// The same with a history of one pass.
template <class V, int channels>
VELA_INLINE V exchange_one(double *history, int i, V now) {
    const V last = load_first<V, channels>(history + i * channels);
    store_last<V, channels>(history + i * channels, now);
    return joined<V, channels>(last, now);
}

} // namespace vela::VELA_LEVEL
