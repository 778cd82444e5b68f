// The lane type: W doubles side by side, for kernels written once as `template <class V>`.
//
// V = double is the reference: one lane, ordinary arithmetic. V = f64<W> does the same to W independent
// pieces of work (time steps, lines, subbands, transforms). There is no operation across lanes, so the
// order of every summation is the one that the kernel's text shows, and every width gives the same
// bytes.
//
// Comparisons select lane by lane; max_of, min_of and clamp never return a NaN from their first
// argument, so a NaN in the input takes the same path at every level.
#pragma once

#include "simd/exact_arithmetic.hpp"
#include "simd/level.hpp"

#include <cstdint>
#include <cstring>
#include <utility>

namespace vela::VELA_LEVEL {

#define VELA_INLINE [[gnu::always_inline]] inline

// g++ for x86-64 splits most generic conversions of vectors into halves, and makes a comparison and a selection of
// the greater of a vector and a constant; the built-in functions are one instruction each.
#if defined(__x86_64__) && !defined(__clang__)
#define VELA_BUILT_IN 1
#else
#define VELA_BUILT_IN 0
#endif

/// W lanes of double. load and store need no more alignment than a double has; arrays of f64 are
/// aligned to their size, and may lie over arrays of double.
template <int W>
struct [[gnu::may_alias]] f64 {
    typedef double native __attribute__((vector_size(W * sizeof(double))));
    typedef std::int64_t mask __attribute__((vector_size(W * sizeof(double))));
    native v;

    VELA_INLINE friend f64 operator+(f64 a, f64 b) { return {a.v + b.v}; }
    VELA_INLINE friend f64 operator-(f64 a, f64 b) { return {a.v - b.v}; }
    VELA_INLINE friend f64 operator*(f64 a, f64 b) { return {a.v * b.v}; }
    VELA_INLINE friend f64 operator/(f64 a, f64 b) { return {a.v / b.v}; }
    VELA_INLINE friend mask operator<(f64 a, f64 b) { return a.v < b.v; }
    VELA_INLINE friend mask operator>=(f64 a, f64 b) { return a.v >= b.v; }
    VELA_INLINE friend mask operator==(f64 a, f64 b) { return a.v == b.v; }
};

template <class V>
inline constexpr int lanes = 1;
template <int W>
inline constexpr int lanes<f64<W>> = W;

/// The lane type of W lanes; one lane is double itself.
template <int W>
struct lane_type_of {
    using type = f64<W>;
};
template <>
struct lane_type_of<1> {
    using type = double;
};
template <int W>
using lane_type = typename lane_type_of<W>::type;

// ---- memory ----

template <class V>
VELA_INLINE V load(const double *p) {
    V r;
    std::memcpy(&r, p, sizeof r);
    return r;
}

template <class V>
VELA_INLINE void store(double *p, V a) {
    std::memcpy(p, &a, sizeof a);
}

template <class V>
VELA_INLINE V splat(double x) {
    if constexpr (lanes<V> == 1) {
        return x;
    } else {
        return {x - typename V::native{}};
    }
}

// What follows moves lanes by a constant rule: lane i of the result is lane from(i) of a and b, those of b
// counted from a's number of lanes on. `from` is a lambda without captures.

template <class R, class A, class From, int... i>
VELA_INLINE R lanes_from(A a, A b, From, std::integer_sequence<int, i...>) {
    return {__builtin_shufflevector(a.v, b.v, From{}(i)...)};
}
template <class R, class A, class From>
VELA_INLINE R arranged(A a, A b, From from) {
    return lanes_from<R>(a, b, from, std::make_integer_sequence<int, lanes<R>>{});
}

/// The last n lanes.
template <class V, int n>
VELA_INLINE void store_last(double *p, V a) {
    constexpr int L = lanes<V>;
    if constexpr (n == L) {
        store(p, a);
    } else if constexpr (n == 1) {
        *p = a.v[L - 1];
    } else {
        store(p, arranged<f64<n>>(a, a, [](int i) { return L - n + i; }));
    }
}

/// Half of V's lanes.
template <class V>
using half = lane_type<lanes<V> / 2>;

template <class V>
VELA_INLINE V halves(half<V> low, half<V> high) {
    if constexpr (lanes<V> == 2) {
        return {typename V::native{low, high}};
    } else {
        return arranged<V>(low, high, [](int i) { return i; });
    }
}

/// The first n lanes; the others have the same numbers again.
template <class V, int n>
VELA_INLINE V load_first(const double *p) {
    if constexpr (n == lanes<V>) {
        return load<V>(p);
    } else if constexpr (n == 1) {
        return splat<V>(*p);
    } else {
        const auto low = load_first<half<V>, n>(p);
        return halves<V>(low, low);
    }
}

/// Consecutive numbers, each in n lanes.
template <class V, int n>
VELA_INLINE V load_each(const double *p) {
    if constexpr (n == lanes<V>) {
        return splat<V>(*p);
    } else if constexpr (n == 1) {
        return load<V>(p);
    } else if constexpr (2 * n == lanes<V>) {
        return halves<V>(splat<half<V>>(p[0]), splat<half<V>>(p[1]));
    } else {
        const auto numbers = load<f64<lanes<V> / n>>(p);
        return arranged<V>(numbers, numbers, [](int i) { return i / n; });
    }
}

/// Lanes in groups of n from several places: group i from address(i).
template <class V, int n, class Address>
VELA_INLINE V load_groups(Address address, int first = 0) {
    if constexpr (n == lanes<V>) {
        return load<V>(address(first));
    } else {
        return halves<V>(load_groups<half<V>, n>(address, first),
                         load_groups<half<V>, n>(address, first + lanes<V> / 2 / n));
    }
}

// ---- single precision ----

/// As many floats as V has lanes. On x86-64, two lanes are the lower half of four, which is what the
/// conversion instructions work on.
template <class V>
struct single_of {
#if defined(__x86_64__)
    static constexpr unsigned width = lanes<V> == 2 ? 4 : lanes<V>;
#else
    static constexpr unsigned width = lanes<V>;
#endif
    typedef float type __attribute__((vector_size(width * sizeof(float))));
};
template <>
struct single_of<double> {
    typedef float type;
};
template <class V>
using single = typename single_of<V>::type;

/// Rounded to the nearest float.
template <class V>
VELA_INLINE single<V> to_single(V a) {
    if constexpr (lanes<V> == 1) {
        return static_cast<float>(a);
#if defined(__x86_64__)
    } else if constexpr (lanes<V> == 2) {
        return __builtin_ia32_cvtpd2ps(a.v);
#endif
    } else {
#if !VELA_BUILT_IN
        return __builtin_convertvector(a.v, single<V>);
#else
        if constexpr (lanes<V> == 4) {
            return __builtin_ia32_cvtpd2ps256(a.v);
        } else {
            return __builtin_convertvector(a.v, single<V>);
        }
#endif
    }
}

/// The same numbers as doubles.
template <class V>
VELA_INLINE V widen(single<V> a) {
    if constexpr (lanes<V> == 1) {
        return static_cast<double>(a);
#if VELA_BUILT_IN
    } else if constexpr (lanes<V> == 2) {
        return {__builtin_ia32_cvtps2pd(a)};
#if defined(__AVX512F__)
    } else if constexpr (lanes<V> == 8) {
        return {__builtin_ia32_cvtps2pd512_mask(a, typename V::native{}, -1, 4)};
#endif
    } else {
        return {__builtin_ia32_cvtps2pd256(a)};
#else
#if defined(__x86_64__)
    } else if constexpr (lanes<V> == 2) {
        return {__builtin_convertvector(__builtin_shufflevector(a, a, 0, 1), typename V::native)};
#endif
    } else {
        return {__builtin_convertvector(a, typename V::native)};
#endif
    }
}

/// The lanes of consecutive floats, widened.
template <class V>
VELA_INLINE V load_floats(const float *p) {
    single<V> f{};
    std::memcpy(&f, p, lanes<V> * sizeof(float));
    return widen<V>(f);
}

// ---- rearrangement: values move between lanes, no arithmetic does ----

/// Lane i of rows[j] becomes lane j of rows[i]: numbers whose row and lane differ in one bit change places,
/// bit by bit.
template <class V, int bit = 1>
VELA_INLINE void transpose(V (&rows)[lanes<V>]) {
    constexpr int L = lanes<V>;
    if constexpr (bit < L) {
        for (int i = 0; i < L; ++i) {
            if ((i & bit) != 0) continue;
            const V a = rows[i], b = rows[i + bit];
            rows[i] = arranged<V>(a, b, [](int l) { return (l & bit) == 0 ? l : L + l - bit; });
            rows[i + bit] = arranged<V>(a, b, [](int l) { return (l & bit) == 0 ? l + bit : L + l; });
        }
        transpose<V, 2 * bit>(rows);
    }
}

/// The first n lanes of `first`, then the first ones of `rest`.
template <class V, int n>
VELA_INLINE V joined(V first, V rest) {
    constexpr int L = lanes<V>;
    if constexpr (n == L) {
        return first;
    } else {
        return arranged<V>(first, rest, [](int i) { return i < n ? i : L + i - n; });
    }
}

/// Lanes in groups of n. Each gets the group before it of `now`, which `moved` has two groups further on;
/// the first one gets the second one of `moved`.
template <class V, int n>
VELA_INLINE V passed_on(V moved, V now) {
    // Every second group from either, so that no group of one lane leaves its pair.
    return arranged<V>(moved, now, [](int i) { return i / n % 2 == 0 ? i + n : lanes<V> + i - n; });
}

/// Lanes in groups of n, those of b counted on from those of a: the even ones go to a, the odd ones to b.
template <class V, int n>
VELA_INLINE void separate(V &a, V &b) {
    if constexpr (n < lanes<V>) {
        const V even = arranged<V>(a, b, [](int i) { return i / n * 2 * n + i % n; });
        b = arranged<V>(a, b, [](int i) { return i / n * 2 * n + n + i % n; });
        a = even;
    }
}

/// The reverse of separate.
template <class V, int n>
VELA_INLINE void interleave(V &a, V &b) {
    constexpr int L = lanes<V>;
    if constexpr (n < L) {
        constexpr auto from = [](int i) { return i / n % 2 * L + i / n / 2 * n + i % n; };
        const V first = arranged<V>(a, b, from);
        b = arranged<V>(a, b, [](int i) { return decltype(from){}(L + i); });
        a = first;
    }
}

// ---- selection ----

VELA_INLINE double select(bool m, double a, double b) {
    return m ? a : b;
}
template <int W>
VELA_INLINE f64<W> select(typename f64<W>::mask m, f64<W> a, f64<W> b) {
    return {m ? a.v : b.v};
}

/// The larger value; b when either is a NaN.
template <class V>
VELA_INLINE V max_of(V a, V b) {
#if VELA_BUILT_IN
    if constexpr (lanes<V> == 2) return {__builtin_ia32_maxpd(a.v, b.v)};
#if defined(__AVX__)
    if constexpr (lanes<V> == 4) return {__builtin_ia32_maxpd256(a.v, b.v)};
#endif
#if defined(__AVX512F__)
    if constexpr (lanes<V> == 8) return {__builtin_ia32_maxpd512_mask(a.v, b.v, a.v, -1, 4)};
#endif
#endif
    return select(b < a, a, b);
}
/// The smaller value; b when either is a NaN.
template <class V>
VELA_INLINE V min_of(V a, V b) {
#if VELA_BUILT_IN
    if constexpr (lanes<V> == 2) return {__builtin_ia32_minpd(a.v, b.v)};
#if defined(__AVX__)
    if constexpr (lanes<V> == 4) return {__builtin_ia32_minpd256(a.v, b.v)};
#endif
#if defined(__AVX512F__)
    if constexpr (lanes<V> == 8) return {__builtin_ia32_minpd512_mask(a.v, b.v, a.v, -1, 4)};
#endif
#endif
    return select(a < b, a, b);
}
/// a limited to [low, high]; low for a NaN.
template <class V>
VELA_INLINE V clamp(V a, V low, V high) {
    return min_of(max_of(a, low), high);
}

// ---- single-operand functions ----

/// Correctly rounded, so the same on every machine.
template <class V>
VELA_INLINE V square_root(V a) {
    if constexpr (lanes<V> == 1) {
        return __builtin_sqrt(a);
    } else {
        V r;
        for (int i = 0; i < lanes<V>; ++i)
            r.v[i] = __builtin_sqrt(a.v[i]);
        return r;
    }
}

/// Of a single<V>.
template <class F>
VELA_INLINE F single_root(F a) {
    if constexpr (sizeof a == sizeof(float)) {
        return __builtin_sqrtf(a);
    } else {
        F r;
        for (unsigned i = 0; i < sizeof a / sizeof(float); ++i)
            r[i] = __builtin_sqrtf(a[i]);
        return r;
    }
}

// ---- bit patterns, for the exponent arithmetic of math.hpp ----

template <class V>
struct bits_of {
    using type = typename V::mask;
};
template <>
struct bits_of<double> {
    using type = std::int64_t;
};

template <class V>
VELA_INLINE typename bits_of<V>::type to_bits(V a) {
    typename bits_of<V>::type r;
    std::memcpy(&r, &a, sizeof r);
    return r;
}

template <class V>
VELA_INLINE V from_bits(typename bits_of<V>::type a) {
    V r;
    std::memcpy(&r, &a, sizeof r);
    return r;
}

template <class V>
VELA_INLINE V magnitude(V a) {
    return from_bits<V>(to_bits(a) & std::int64_t{0x7FFF'FFFF'FFFF'FFFF});
}

// ---- conversion to integers: truncation toward zero; the caller keeps the value within 32 bits ----

/// As many integers as V has lanes.
template <class V>
struct integers_of {
    typedef std::int32_t type __attribute__((vector_size(lanes<V> * sizeof(std::int32_t))));
};
template <>
struct integers_of<double> {
    using type = std::int32_t;
};
template <class V>
using integers = typename integers_of<V>::type;

template <class V>
VELA_INLINE integers<V> truncated(V a) {
    if constexpr (lanes<V> == 1) {
        return static_cast<std::int32_t>(a);
    } else {
        return __builtin_convertvector(a.v, integers<V>);
    }
}

template <class Integers>
VELA_INLINE void store(std::int32_t *p, Integers a) {
    std::memcpy(p, &a, sizeof a);
}

} // namespace vela::VELA_LEVEL
