// Hann window and 1024-point discrete Hartley transform. Lanes are transforms: channels and passes side
// by side share every twiddle factor.
#pragma once

#include "psy/kernels.hpp"
#include "simd/const_math.hpp"
#include "simd/lanes.hpp"

#include <array>
#include <cstdint>

namespace vela::VELA_LEVEL {

/// hann_window[i] = (1 - cos((i - 0.5) 2 pi / 1024)) / 2.
inline constexpr std::array<double, transform_length> hann_window = [] {
    std::array<double, transform_length> window{};
    for (unsigned i = 0; i < transform_length; ++i) {
        window[i] = 0.5 * (1 - const_math::cosine((i - 0.5) * 6.28318530717958 / 1024));
    }
    return window;
}();

/// cos(2 pi i / 1024), i = 0..255; sin(2 pi i / 1024) is entry 256 - i.
inline constexpr std::array<double, 256> quarter_wave = [] {
    std::array<double, 256> c{};
    for (unsigned i = 0; i < 256; ++i)
        c[i] = const_math::cosine(i * 0.006135923151542565);
    return c;
}();

inline constexpr std::array<std::uint16_t, transform_length> bit_reversal = [] {
    std::array<std::uint16_t, transform_length> reversed{};
    for (unsigned i = 1; i < transform_length; ++i) {
        reversed[i] = static_cast<std::uint16_t>(reversed[i / 2] / 2 + (i % 2) * transform_length / 2);
    }
    return reversed;
}();

/// Calls body(i0) for every block start of the split-radix index pattern of a stage of length n: blocks
/// that an earlier stage has finished are skipped.
template <class Body>
VELA_INLINE void for_each_block(int n, Body body) {
    for (int id = n; id <= transform_length; id *= 4) {
        for (int i0 = id - n; i0 < transform_length; i0 += 2 * id)
            body(i0);
    }
}

/// L-shaped butterflies of a stage whose twiddle factors are 1 and sqrt 2.
template <class V>
VELA_INLINE void plain_butterflies(V *x, int n) {
    const int quarter = n / 4, half = n / 2, eighth = n / 8;
    const V root2 = splat<V>(1.4142135623730951);
    for_each_block(n, [=](int i0) {
        V *const p = x + i0;
        const V d0 = p[0] - p[half], d1 = p[quarter] - p[half + quarter];
        p[0] = p[0] + p[half];
        p[quarter] = p[quarter] + p[half + quarter];
        p[half] = d0 + d1;
        p[half + quarter] = d0 - d1;
        V *const q = p + eighth;
        const V e0 = q[0] - q[half], e1 = q[quarter] - q[half + quarter];
        q[0] = q[0] + q[half];
        q[quarter] = q[quarter] + q[half + quarter];
        q[half] = e0 * root2;
        q[half + quarter] = e1 * root2;
    });
}

/// The other butterflies of a stage: index j of the block turns by j and by 3 j.
template <class V>
VELA_INLINE void twiddled_butterflies(V *x, int n) {
    const int quarter = n / 4, half = n / 2, eighth = n / 8;
    const int stride = transform_length / n;
    for (int j = 1; j < eighth; ++j) {
        const auto angle = static_cast<unsigned>(j * stride);
        const bool obtuse = 3 * angle >= 256;
        const V cc1 = splat<V>(quarter_wave[angle]), ss1 = splat<V>(quarter_wave[256 - angle]);
        const V cc3 = splat<V>(obtuse ? -quarter_wave[512 - 3 * angle] : quarter_wave[3 * angle]);
        const V ss3 = splat<V>(obtuse ? quarter_wave[3 * angle - 256] : quarter_wave[256 - 3 * angle]);
        for_each_block(n, [=](int i0) {
            V *const p = x + i0 + j;           // p0, p1, t0, t1 a quarter apart
            V *const q = x + i0 + quarter - j; // q0, r0, q1, r1 a quarter apart
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
        });
    }
}

/// In place, lane by lane: the discrete Hartley transform H[k] = sum of x[n] (cos + sin)(2 pi n k /
/// 1024) by split-radix decimation in frequency; H[k] is left at x[bit_reversal[k]].
template <class V>
VELA_INLINE void hartley(V *x) {
    for (int n = transform_length; n >= 8; n /= 2) {
        plain_butterflies(x, n);
        twiddled_butterflies(x, n);
    }
    for_each_block(4, [=](int i0) {
        for (int k = 0; k < 2; ++k) {
            const V sum = x[i0 + k] + x[i0 + k + 2], difference = x[i0 + k] - x[i0 + k + 2];
            x[i0 + k] = sum;
            x[i0 + k + 2] = difference;
        }
    });
    for (int i = 0; i < transform_length; i += 2) {
        const V sum = x[i] + x[i + 1], difference = x[i] - x[i + 1];
        x[i] = sum;
        x[i + 1] = difference;
    }
}

/// Transforms as many blocks as V has lanes.
template <class V>
void transform_group(const float *const *blocks, line_pairs *out) noexcept {
    V x[transform_length];
    for (unsigned i = 0; i < transform_length; ++i) {
        V samples;
        for (int t = 0; t < lanes<V>; ++t)
            set_lane(samples, t, static_cast<double>(blocks[t][i]));
        x[i] = samples * splat<V>(hann_window[i]);
    }
    hartley(x);
    for (int t = 0; t < lanes<V>; ++t) {
        out[t].a[0] = 0;
        out[t].a[512] = 0;
        out[t].b[0] = lane(x[0], t);
        out[t].b[512] = lane(x[bit_reversal[512]], t);
        for (unsigned k = 1; k < 512; ++k) {
            out[t].a[k] = lane(x[bit_reversal[k]], t);
            out[t].b[k] = lane(x[bit_reversal[1024 - k]], t);
        }
        for (unsigned k = line_count; k < padded_lines; ++k)
            out[t].a[k] = out[t].b[k] = 0;
    }
}

template <class V>
void transform(const float *const *blocks, int count, line_pairs *out) noexcept {
    int done = 0;
    for (; count - done >= lanes<V>; done += lanes<V>)
        transform_group<V>(blocks + done, out + done);
    for (; done < count; ++done)
        transform_group<double>(blocks + done, out + done);
}

} // namespace vela::VELA_LEVEL
