// Hann window and 1024-point discrete Hartley transform. Lanes are transforms: channels and passes side
// by side share every twiddle factor.
#pragma once

#include "psy/kernels.hpp"
#include "simd/const_math.hpp"
#include "simd/lanes.hpp"
#include "simd/table.hpp"

#include <cstdint>

namespace vela::VELA_LEVEL {

/// hann_window[i] = (1 - cos((i - 0.5) 2 pi / 1024)) / 2.
inline constexpr table<double, transform_length> hann_window = [] {
    table<double, transform_length> window{};
    for (int i = 0; i < transform_length; ++i) {
        window[i] = 0.5 * (1 - const_math::cosine((i - 0.5) * 6.28318530717958 / 1024));
    }
    return window;
}();

/// cos(2 pi i / 1024), i = 0..255; sin(2 pi i / 1024) is entry 256 - i.
inline constexpr table<double, 256> quarter_wave = [] {
    table<double, 256> c{};
    for (int i = 0; i < 256; ++i)
        c[i] = const_math::cosine(i * 0.006135923151542565);
    return c;
}();

/// cos and sin of three times the angle 2 pi i / 1024, i = 0..127.
inline constexpr table<double, 128> triple_cosine = [] {
    table<double, 128> c{};
    for (int i = 1; i < 128; ++i)
        c[i] = 3 * i < 256 ? quarter_wave[3 * i] : -quarter_wave[512 - 3 * i];
    return c;
}();
inline constexpr table<double, 128> triple_sine = [] {
    table<double, 128> s{};
    for (int i = 1; i < 128; ++i)
        s[i] = quarter_wave[3 * i < 256 ? 256 - 3 * i : 3 * i - 256];
    return s;
}();

/// Where the transform leaves H[k]: the place of k with its ten bits reversed.
inline constexpr table<std::uint16_t, transform_length> place_of = [] {
    table<std::uint16_t, transform_length> reversed{};
    for (int i = 1; i < transform_length; ++i) {
        reversed[i] = static_cast<std::uint16_t>(reversed[i / 2] / 2 + (i % 2) * transform_length / 2);
    }
    return reversed;
}();

/// Split-radix butterflies of a block of n values (decimation in frequency): the block's first half is
/// left to a transform of n / 2, its third and fourth quarters to transforms of n / 4.
///
///     0            quarter        half        half + quarter     n
///     | sums of values n/2 apart   | turned by j   | turned by 3 j |
template <class V, int n>
VELA_INLINE void butterflies(V *x) {
    constexpr int quarter = n / 4, half = n / 2, eighth = n / 8;
    const V root2 = splat<V>(1.4142135623730951);
    // Index 0 and index n/8, whose factors are 1 and sqrt 2 ...
    {
        const V d0 = x[0] - x[half], d1 = x[quarter] - x[half + quarter];
        x[0] = x[0] + x[half];
        x[quarter] = x[quarter] + x[half + quarter];
        x[half] = d0 + d1;
        x[half + quarter] = d0 - d1;
        V *const q = x + eighth;
        const V e0 = q[0] - q[half], e1 = q[quarter] - q[half + quarter];
        q[0] = q[0] + q[half];
        q[quarter] = q[quarter] + q[half + quarter];
        q[half] = e0 * root2;
        q[half + quarter] = e1 * root2;
    }
    // ... and the others, index j together with its mirror image n/4 - j.
    constexpr int stride = transform_length / n;
    for (int j = 1; j < eighth; ++j) {
        const int angle = j * stride;
        const V cc1 = splat<V>(quarter_wave[angle]), ss1 = splat<V>(quarter_wave[256 - angle]);
        const V cc3 = splat<V>(triple_cosine[angle]), ss3 = splat<V>(triple_sine[angle]);
        V *const p = x + j;
        V *const q = x + quarter - j;
        const V p0 = p[0], t0 = p[quarter], p1 = p[half], t1 = p[half + quarter];
        const V q0 = q[0], r0 = q[quarter], q1 = q[half], r1 = q[half + quarter];
        p[0] = p0 + p1;
        q[0] = q0 + q1;
        q[quarter] = r0 + r1;
        p[quarter] = t0 + t1;
        const V A = (p0 - p1) + (q0 - q1), B = (r0 - r1) - (t0 - t1);
        const V C = (p0 - p1) - (q0 - q1), D = (t0 - t1) + (r0 - r1);
        p[half] = cc1 * A + ss1 * B;
        q[half] = ss1 * A - cc1 * B;
        p[half + quarter] = cc3 * C + ss3 * D;
        q[half + quarter] = ss3 * C - cc3 * D;
    }
}

/// In place, lane by lane: the discrete Hartley transform H[k] = sum of x[i] (cos + sin)(2 pi i k / n);
/// H[k] is left at the place of k with its bits reversed. Short ones are expanded in place, so that
/// their values stay in registers.
template <class V, int n>
VELA_INLINE void short_hartley(V *x) {
    if constexpr (n == 2) {
        const V sum = x[0] + x[1], difference = x[0] - x[1];
        x[0] = sum;
        x[1] = difference;
    } else if constexpr (n == 4) {
        const V s0 = x[0] + x[2], s1 = x[1] + x[3], d0 = x[0] - x[2], d1 = x[1] - x[3];
        x[0] = s0 + s1;
        x[1] = s0 - s1;
        x[2] = d0 + d1;
        x[3] = d0 - d1;
    } else {
        butterflies<V, n>(x);
        short_hartley<V, n / 2>(x);
        short_hartley<V, n / 4>(x + n / 2);
        short_hartley<V, n / 4>(x + 3 * n / 4);
    }
}

template <class V, int n>
void hartley(V *x) {
    if constexpr (n <= 16) {
        short_hartley<V, n>(x);
    } else {
        butterflies<V, n>(x);
        hartley<V, n / 2>(x);
        hartley<V, n / 4>(x + n / 2);
        hartley<V, n / 4>(x + 3 * n / 4);
    }
}

template <class V>
void transform(const float *const *windows, double *out) noexcept {
    V *const x = reinterpret_cast<V *>(out);
    for (int i = 0; i < transform_length; i += lanes<V>) {
        V rows[lanes<V>];
        const V weights = load<V>(hann_window.begin() + i);
        for (int t = 0; t < lanes<V>; ++t)
            rows[t] = load_floats<V>(windows[t] + i) * weights;
        transpose(rows);
        for (int t = 0; t < lanes<V>; ++t)
            x[i + t] = rows[t];
    }
    hartley<V, transform_length>(x);
}

} // namespace vela::VELA_LEVEL
