// exp, log and cos against long double arithmetic of the C library.
#include "simd/const_math.hpp"
#include "simd/math.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

using pair_of_lanes = vela::reference::f64<2>;

/// Distance from the exact value in units of the last place of a double.
double ulps(double got, long double exact) {
    const double rounded = std::fabs(static_cast<double>(exact));
    const long double unit = static_cast<long double>(std::nextafter(rounded, INFINITY)) - rounded;
    return static_cast<double>(std::fabs(got - exact) / unit);
}

struct range {
    double low, high;
    bool logarithmic;
};

/// Largest error of a function over the ranges; every width must give the same bits.
template <class Scalar, class Pair, class Exact>
double worst_error(std::initializer_list<range> ranges, Scalar scalar, Pair pair, Exact exact) {
    std::mt19937_64 random(1);
    double worst = 0;
    for (const range &r : ranges) {
        std::uniform_real_distribution<double> uniform(r.logarithmic ? std::log(r.low) : r.low,
                                                       r.logarithmic ? std::log(r.high) : r.high);
        for (int i = 0; i < 300000; ++i) {
            const double x = r.logarithmic ? std::exp(uniform(random)) : uniform(random);
            const double got = scalar(x);
            const pair_of_lanes two = pair(pair_of_lanes{{1.25, x}});
            EXPECT_EQ(two.v[1], got) << "lane differs at " << x;
            worst = std::max(worst, ulps(got, exact(static_cast<long double>(x))));
        }
    }
    return worst;
}

TEST(math, exponential_is_within_one_ulp_where_the_model_uses_it) {
    const auto f = [](auto x) { return vela::reference::exponential(x); };
    EXPECT_LT(worst_error({{-25, 1, false}, {-12, 0, false}}, f, f, expl), 1.0);
    EXPECT_EQ(f(0.0), 1.0);
}

TEST(math, logarithm_is_within_one_ulp_where_the_model_uses_it) {
    const auto f = [](auto x) { return vela::reference::logarithm(x); };
    EXPECT_LT(worst_error({{1e-16, 1e20, true}, {0.05, 0.5, false}, {0.9, 1.1, false}}, f, f, logl),
              1.0);
    EXPECT_EQ(f(1.0), 0.0);
}

TEST(math, constants_of_the_tables_are_rounded_from_exact_values) {
    for (int i = -1; i < 1024; ++i) {
        // Filterbank, transform, window.
        for (const double angle :
             {i * 0.04908738521234052, i * 0.006135923151542565, (i - 0.5) * 6.28318530717958 / 1024}) {
            EXPECT_LE(std::fabs(vela::const_math::cosine(angle) - cosl(angle)), 0x1p-53L) << angle;
        }
    }
    for (long double x = -30; x < 30; x += 0.37L) {
        EXPECT_NEAR(static_cast<double>(vela::const_math::exponential(x) / expl(x)), 1.0, 1e-17) << x;
        EXPECT_NEAR(static_cast<double>(vela::const_math::logarithm(expl(x)) - x), 0.0, 1e-17) << x;
    }
}

} // namespace
