// exp, log and inverse roots on lanes, with a fixed order of operations: the output bytes must not
// depend on the mathematics library of the machine.
#pragma once

#include "simd/lanes.hpp"

namespace vela::VELA_LEVEL {

namespace detail {

// ln 2 in two pieces: the first has 21 trailing zero bits, so that its product with a small integer is
// exact; the second is the remainder.
inline constexpr double ln2_high = 0x1.62e42fee00000p-1;
inline constexpr double ln2_low = 0x1.a39ef35793c76p-33;

/// 2^52 + 2^51: adding it to |x| < 2^50 leaves the nearest integer to x in the low bits.
inline constexpr double round_shift = 6755399441055744.0;

/// c[0] + c[1] x + ... + c[N-1] x^(N-1), halved again and again: low half + x^half * high half. The
/// short chain of operations lets several evaluations overlap.
template <int N, class V>
VELA_INLINE V polynomial(const double *c, V x) {
    if constexpr (N == 1) {
        return splat<V>(c[0]);
    } else {
        constexpr int half = N > 8 ? 8 : N > 4 ? 4 : N > 2 ? 2 : 1;
        V power = x;
        for (int i = 1; i < half; i *= 2)
            power = power * power;
        return polynomial<half>(c, x) + power * polynomial<N - half>(c + half, x);
    }
}

/// k = 2^(-1/3) and 3 k^2, see inverse_root.
inline constexpr float seed_scale = 0.79370053F;
inline constexpr double three_scale_squares = 1.8898815748423097;

} // namespace detail

/// The nearest integer to |x| < 2^50; the even one of two.
template <class V>
VELA_INLINE V nearest(V x) {
    return (x + splat<V>(detail::round_shift)) - splat<V>(detail::round_shift);
}

/// e^x for |x| <= 700; error below 1 ulp.
///
/// x = n ln 2 + r with |r| <= ln 2 / 2, and e^x = 2^n (1 + (r + r^2 P(r))), where P is the exponential
/// series from 1/2! on; the first term left out is below 2^-57.
template <class V>
VELA_INLINE V exponential(V x) {
    static constexpr double c[] = {1.0 / 2,          1.0 / 6,           1.0 / 24,
                                   1.0 / 120,        1.0 / 720,         1.0 / 5040,
                                   1.0 / 40320,      1.0 / 362880,      1.0 / 3628800.0,
                                   1.0 / 39916800.0, 1.0 / 479001600.0, 1.0 / 6227020800.0};
    const V shifted = x * splat<V>(1.4426950408889634) + splat<V>(detail::round_shift);
    const V n = shifted - splat<V>(detail::round_shift);
    const V r = (x - n * splat<V>(detail::ln2_high)) - n * splat<V>(detail::ln2_low);
    const V fraction = splat<V>(1.0) + (r + (r * r) * detail::polynomial<12>(c, r));
    // n stands in the low bits of `shifted`: moved to the exponent field and added there.
    return from_bits<V>(to_bits(fraction) + (to_bits(shifted) << 52));
}

/// Natural logarithm of a positive, finite, normal number; error below 1 ulp.
///
/// x = 2^k m with m in [sqrt(1/2), sqrt(2)), f = m - 1 and s = f / (2 + f), so that
/// ln m = 2 artanh(s) = 2s + s R with R = 2 s^2/3 + 2 s^4/5 + ... Since 2s = f - s f, the leading term
/// is taken as f itself (exact), with f^2/2 split off to keep the correction small: ln m = f - (f^2/2 -
/// s (f^2/2 + R)).
template <class V>
VELA_INLINE V logarithm(V x) {
    static constexpr double c[] = {2.0 / 3,  2.0 / 5,  2.0 / 7,  2.0 / 9,  2.0 / 11,
                                   2.0 / 13, 2.0 / 15, 2.0 / 17, 2.0 / 19, 2.0 / 21};
    constexpr std::int64_t one_bits = 0x3FF0'0000'0000'0000;
    constexpr std::int64_t root_half_bits = 0x3FE6'A09E'667F'3BCD;
    constexpr std::int64_t mantissa_mask = 0x000F'FFFF'FFFF'FFFF;
    const auto offset = to_bits(x) + (one_bits - root_half_bits);
    // The exponent field as a double without a conversion from 64-bit integers: placed in the low bits
    // of 2^52, then 2^52 and the bias are taken off.
    const auto exponent_field = (offset >> 52) & 0xFFF;
    const V k =
        from_bits<V>(exponent_field | 0x4330'0000'0000'0000) - splat<V>(4503599627370496.0 + 1023.0);
    const V m = from_bits<V>((offset & mantissa_mask) + root_half_bits);

    const V f = m - splat<V>(1.0);
    const V half_square = splat<V>(0.5) * f * f;
    const V s = f / (splat<V>(2.0) + f);
    const V z = s * s;
    const V series = z * detail::polynomial<10>(c, z);
    const V low = s * (half_square + series) + k * splat<V>(detail::ln2_low);
    return k * splat<V>(detail::ln2_high) - ((half_square - low) - f);
}

// Inverse square roots cost a division and a root of single precision and one step of refinement: less
// than half of what a division and a root of double precision occupy the divider for. From a seed h = k
// (1 + e) / sqrt(x), k = 2^(-1/3),
//
//     h (3 k^2 - x h^2) = (1 - 3/2 e^2 - e^3/2) / sqrt(x).
//
// Rounding leaves |e| below 3.6e-7: six roundings to 24 bits at most. What is added to the arguments
// for the seed keeps it within the range of normal floats; where that adds less than 3e-7 of the
// argument, the result is exact to 1e-12. Below, it is bounded and too small: a magnitude of 1e-14 lies
// 280 dB below the least significant bit of 16-bit samples. Results are 0 where an argument, or sqrt(x) y,
// exceeds the range of float, which takes samples 1.8 10^11 times full scale, and not a number for infinite
// ones. Ratios cease to be those of exact arithmetic before: from 3 10^10 times full scale on, what double
// precision rounds off of the loudest lines lies above the threshold in quiet.

/// The seed h for 1 / sqrt(x).
template <class V>
VELA_INLINE single<V> inverse_root_seed(V x) {
    return detail::seed_scale / single_root(to_single(x + splat<V>(1e-36)));
}

/// 1 / sqrt(x) with a relative error below 1e-12 for x >= 1e-29; finite for 0.
template <class V>
VELA_INLINE V inverse_root(V x, single<V> seed) {
    const V h = widen<V>(seed);
    return h * (splat<V>(detail::three_scale_squares) - x * h * h);
}

/// sqrt(x) / y with a relative error below 1e-12 for y >= 1e-11 and x >= 1e-29 that is not above y^2; 0
/// for x = y = 0.
/// It is x times the inverse root of x y^2, whose factors are converted one by one: together they would
/// leave the range of float.
template <class V>
VELA_INLINE V root_over(V x, V y) {
    const V h =
        widen<V>(detail::seed_scale
                 / (single_root(to_single(x + splat<V>(1e-36))) * to_single(y + splat<V>(1e-18))));
    const V xh = x * h;
    return xh * (splat<V>(detail::three_scale_squares) - (xh * y) * (y * h));
}

} // namespace vela::VELA_LEVEL
