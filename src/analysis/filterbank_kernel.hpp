// Polyphase analysis filterbank (ISO/IEC 11172-3, C.1.3): windowed sums and a fast 32-point cosine
// transform. Lanes are neighbouring taps in the one, time steps in the other.
#pragma once

#include "analysis/kernels.hpp"
#include "analysis/window_table.hpp"
#include "simd/const_math.hpp"
#include "simd/lanes.hpp"
#include "simd/table.hpp"

namespace vela::VELA_LEVEL {

/// cos(i pi / 64), i = 0..31.
inline constexpr table<double, 32> dct_cosines = [] {
    table<double, 32> c{};
    for (int i = 0; i < 32; ++i)
        c[i] = const_math::cosine(i * 0.04908738521234052);
    return c;
}();

/// Angles of the butterfly blocks in units of pi / 32 beyond half a block: 4-bit bit reversals of 0..7.
inline constexpr table<int, 8> dct_block_order{0, 8, 4, 12, 2, 10, 6, 14};

/// Bit reversal of five bits, by exchanges.
struct index_pair {
    int first, second;
};
inline constexpr index_pair dct_swaps[] = {{16, 1}, {8, 2},   {24, 3},  {20, 5},  {12, 6},  {28, 7},
                                           {18, 9}, {26, 11}, {22, 13}, {30, 15}, {25, 19}, {29, 23}};

// The transform halves again and again how finely its input is told apart. With w[0] = v[0] and
// w[n] = w[-n] = v[n] / 2 it is, at the angles t = (2i + 1) pi / 64,
//
//     S(t) = sum of w[n] e^(j n t), |n| < 32.
//
// Let X_M,r be the part of the sum with n = r modulo M, and Y_M,r = e^(-j r t) X_M,r, which depends on t
// through M t only. X_M,-r is the conjugate of X_M,r. At M = 32, where M t is an odd multiple of pi / 2,
// 2 Y_M,r is v[r] -+ j v[32 - r]; at M = 1 there is S itself. From M to L = M / 2, and h = L / 2:
//
//     Y_L,r = Y_M,r + e^(-j L t) conj(Y_M,L-r)           0 < r < h: block_middles
//     X_h,0 = X_L,0 + 2 Re(e^(j h t) Y_M,h)              block_ends
//
// For every value of M t there are two of L t, half of it and that plus pi: the sum and the difference.
// Each block of M places holds what belongs to one value of M t; real parts come from its front,
// imaginary parts from its back.

/// One round, L = M / 2: every block of M values rotates one pair by the angle of its block ...
template <class V, int L, int M>
VELA_INLINE void dct32_block_ends(V *v) {
    constexpr int h = L / 2;
#pragma GCC unroll 16
    for (int g = 0; g < 32 / M; ++g) {
        const int k = h + dct_block_order[g];
        const V cosine = splat<V>(dct_cosines[k]), sine = splat<V>(dct_cosines[32 - k]);
        const int a = g * M, b = 32 - h - g * M;
        const V A = v[a + h], B = v[b];
        const V t1 = A * cosine + B * sine, t2 = B * cosine - A * sine;
        const V low = v[a], high = v[b - h];
        v[b] = low - t1;
        v[a] = low + t1;
        v[a + h] = high + t2;
        v[b - h] = high - t2;
    }
}

/// ... and the pairs in between, from both ends towards the middle, by twice that angle.
template <class V, int L, int M>
VELA_INLINE void dct32_block_middles(V *v) {
    constexpr int h = L / 2;
#pragma GCC unroll 16
    for (int g = 0; g < 32 / M; ++g) {
        const int k = 2 * (h + dct_block_order[g]);
        const V cosine = splat<V>(dct_cosines[k]), sine = splat<V>(dct_cosines[32 - k]);
        const int d = L + 2 * g * M - 32;
#pragma GCC unroll 8
        for (int i = 0; i < h - 1; ++i) {
            const int p = 31 - g * M - i, q = 33 - L - g * M + i;
            const V A = v[p + d], B = v[q];
            const V t1 = A * cosine + B * sine, t2 = B * cosine - A * sine;
            const V low = v[q + d], high = v[p];
            v[q] = low - t1;
            v[q + d] = low + t1;
            v[p + d] = splat<V>(0.0) - high - t2;
            v[p] = high - t2;
        }
    }
}

/// In place: v[i] = sum over n = 0..31 of v[n] cos((2i + 1) n pi / 64).
template <class V>
VELA_INLINE void dct32(V *v) {
    const V t = v[16] * splat<V>(0.7071067811865476);
    v[16] = v[0] - t;
    v[0] = v[0] + t;
    dct32_block_ends<V, 16, 32>(v);
    dct32_block_middles<V, 16, 32>(v);
    dct32_block_ends<V, 8, 16>(v);
    dct32_block_middles<V, 8, 16>(v);
    dct32_block_ends<V, 4, 8>(v);
    dct32_block_middles<V, 4, 8>(v);
    dct32_block_ends<V, 2, 4>(v);
    for (const auto &[r, i] : dct_swaps) {
        const V value = v[r];
        v[r] = v[i];
        v[i] = value;
    }
}

/// sum[s] = sum over j = 0..7 of window[tap + 64 j] times that tap's sample at step s. Lanes are
/// neighbouring taps.
template <class V, int steps>
VELA_INLINE void window_sums(const double *samples, int tap, V (&sum)[steps]) {
#pragma GCC unroll 8
    for (int j = 0; j < 8; ++j) {
        const V weight = load<V>(analysis_window.begin() + tap + 64 * j);
#pragma GCC unroll 12
        for (int s = 0; s < steps; ++s) {
            const V product = load<V>(samples + 32 * s + tap + 64 * j) * weight;
            sum[s] = j == 0 ? product : sum[s] + product;
        }
    }
}

/// In the standard's terms (C.1.3: Z[i] = C[i] X[i], Y[k] = sum over j of Z[k + 64 j]) the transform's
/// input is
///
///     a[0]  = Y[16]
///     a[n]  = Y[16 - n] + Y[16 + n]    n = 1..16
///     a[n]  = Y[16 + n] - Y[80 - n]    n = 17..31
///
/// and S[i] = sum over k of cos((2i + 1)(k - 16) pi / 64) Y[k] = sum over n of cos((2i + 1) n pi / 64)
/// a[n]. Y[k] stands at tap 63 - k of the reversed window.
template <class V>
VELA_INLINE void fold(const V (&sum)[64], V (&a)[32]) {
    a[0] = sum[47];
    for (int n = 1; n <= 16; ++n)
        a[n] = sum[47 + n] + sum[47 - n];
    for (int n = 17; n <= 31; ++n)
        a[n] = sum[47 - n] - sum[n - 17];
}

template <class V>
void analyze_part(const double *samples, double (*out)[32]) noexcept {
    // As many steps at once as sums fit into registers, in groups that become the lanes.
    constexpr int L = lanes<V>, groups = L == 1 ? 12 : 3, steps = groups * L;
    for (int first = 0; first < 12; first += steps) {
        V by_step[groups][64];
        for (int tap = 0; tap < 64; tap += L) {
            V sum[steps];
            window_sums(samples + 32 * first, tap, sum);
            for (int g = 0; g < groups; ++g) {
                V rows[L];
                for (int t = 0; t < L; ++t)
                    rows[t] = sum[g * L + t];
                transpose(rows);
                for (int t = 0; t < L; ++t)
                    by_step[g][tap + t] = rows[t];
            }
        }
        for (int g = 0; g < groups; ++g) {
            V a[32];
            fold(by_step[g], a);
            dct32(a);
            for (int i = 0; i < 32; i += L) {
                V rows[L];
                for (int t = 0; t < L; ++t)
                    rows[t] = a[i + t];
                transpose(rows);
                for (int t = 0; t < L; ++t)
                    store(out[first + g * L + t] + i, rows[t]);
            }
        }
    }
}

template <class V>
void to_doubles(const float *samples, int count, double *out) noexcept {
    for (int i = 0; i < count; i += lanes<V>)
        store(out + i, load_floats<V>(samples + i));
}

} // namespace vela::VELA_LEVEL
