// cos, exp and log for constant tables, for use by the compiler only: long double keeps the rounding to
// double at the end as good as exact, and no table depends on the machine that runs the encoder.
#pragma once

#include <cfloat>

namespace vela::const_math {

static_assert(LDBL_MANT_DIG >= 64, "tables computed with this compiler's long double would differ");

inline constexpr long double pi = 3.14159265358979323846264338327950288L;
inline constexpr long double ln2 = 0.693147180559945309417232121458176568L;

/// cos x = sum (-1)^n x^(2n) / (2n)!, x in radians, |x| up to a few periods.
constexpr double cosine(double radians) {
    const auto magnitude = [](long double y) { return y < 0 ? -y : y; };
    long double x = magnitude(radians);
    while (x > pi)
        x = magnitude(x - 2 * pi);
    // cos x = -cos(pi - x) keeps the series' argument below pi/2.
    const bool mirrored = x > pi / 2;
    if (mirrored) x = pi - x;
    long double term = 1, sum = 0;
    for (int n = 0; n < 30; n += 2) {
        sum += term;
        term *= -x * x / static_cast<long double>((n + 1) * (n + 2));
    }
    return static_cast<double>(mirrored ? -sum : sum);
}

/// e^x = 2^n e^r with |r| <= ln 2 / 2, e^r by its series.
constexpr long double exponential(long double x) {
    int n = static_cast<int>(x / ln2 + (x < 0 ? -0.5L : 0.5L));
    const long double r = x - static_cast<long double>(n) * ln2;
    long double term = 1, sum = 0;
    for (int i = 1; i < 25; ++i) {
        sum += term;
        term *= r / static_cast<long double>(i);
    }
    for (; n > 0; --n)
        sum *= 2;
    for (; n < 0; ++n)
        sum /= 2;
    return sum;
}

/// ln x = k ln 2 + 2 artanh((m - 1) / (m + 1)) for x = 2^k m, m in [0.75, 1.5); x > 0.
constexpr long double logarithm(long double x) {
    int k = 0;
    for (; x >= 1.5L; x /= 2)
        ++k;
    for (; x < 0.75L; x *= 2)
        --k;
    const long double s = (x - 1) / (x + 1);
    long double power = s, sum = 0;
    for (int i = 1; i < 60; i += 2) {
        sum += power / static_cast<long double>(i);
        power *= s * s;
    }
    return static_cast<long double>(k) * ln2 + 2 * sum;
}

/// x^y for x > 0.
constexpr long double power(long double x, long double y) {
    return exponential(y * logarithm(x));
}

} // namespace vela::const_math
