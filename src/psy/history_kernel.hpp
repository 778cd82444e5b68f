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
/// @tparam width  lanes of a value; V may hold several, i and those after it
template <class V, int channels, int width = lanes<V>>
VELA_INLINE earlier<V> exchange(double *history, int i, V now) {
    constexpr int L = lanes<V>;
    double *const kept = history + 2 * i * channels;
    if constexpr (width == channels) {
        V before2 = load<V>(kept), before1 = load<V>(kept + L);
        separate<V, channels>(before2, before1);
        V older = before1, newer = now;
        interleave<V, channels>(older, newer);
        store(kept, older);
        store(kept + L, newer);
        return {before1, before2};
    } else {
        static_assert(width == L || width == 2 * channels);
        constexpr int n = width == L ? 2 * channels : L;
        const V before2 = joined<V, n>(load_first<V, n>(kept), now);
        store_last<V, n>(kept, now);
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
