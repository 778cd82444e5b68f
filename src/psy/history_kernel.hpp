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
VELA_INLINE earlier<V> exchange(pass_history history, int i, V now) {
    const double *const before = history.before + 2 * i * channels;
    double *const after = history.after + 2 * i * channels;
    if constexpr (lanes<V> == channels) {
        const V before2 = load<V>(before), before1 = load<V>(before + channels);
        store(after, before1);
        store(after + channels, now);
        return {before1, before2};
    } else {
        const V before2 = joined<V, 2 * channels>(load_first<V, 2 * channels>(before), now);
        store_last<V, 2 * channels>(after, now);
        return {passed_on<V, channels>(before2, now), before2};
    }
}

/// The same with a history of one pass.
template <class V, int channels>
VELA_INLINE V exchange_one(pass_history history, int i, V now) {
    const V last = load_first<V, channels>(history.before + i * channels);
    store_last<V, channels>(history.after + i * channels, now);
    return joined<V, channels>(last, now);
}

} // namespace vela::VELA_LEVEL
