// exp, log and roots against long double arithmetic of the C library.
#include "simd/math.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

using lanes = vela::reference::f64<2>;

/// The largest error of f between f's values at two arguments, or the exponentials of these, in units
/// of the last place; every width must give the same bits.
template <class Function, class Exact>
double worst_error(double low, double high, bool logarithmic, Function f, Exact exact) {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> uniform(low, high);
    double worst = 0;
    for (int i = 0; i < 300000; ++i) {
        const double x = logarithmic ? std::exp(uniform(random)) : uniform(random), got = f(x);
        EXPECT_EQ(f(lanes{{1.25, x}}).v[1], got) << "lane differs at " << x;
        const long double y = exact(static_cast<long double>(x));
        const double rounded = std::fabs(static_cast<double>(y));
        const double unit = std::nextafter(rounded, INFINITY) - rounded;
        worst = std::max(worst, static_cast<double>(std::fabs(got - y) / unit));
    }
    return worst;
}

TEST(math, functions_are_within_one_ulp_where_the_model_uses_them) {
    const auto e = [](auto x) { return vela::reference::exponential(x); };
    const auto l = [](auto x) { return vela::reference::logarithm(x); };
    EXPECT_LT(worst_error(-25, 1, false, e, expl), 1.0);
    EXPECT_LT(worst_error(-12, 0, false, e, expl), 1.0);
    EXPECT_LT(worst_error(std::log(1e-16), std::log(1e20), true, l, logl), 1.0);
    EXPECT_LT(worst_error(0.05, 0.5, false, l, logl), 1.0);
    EXPECT_LT(worst_error(0.9, 1.1, false, l, logl), 1.0);
    EXPECT_TRUE(e(0.0) == 1.0 && l(1.0) == 0.0);
}

TEST(math, inverse_roots_are_exact_to_1e_12_and_finite_for_silence) {
    using namespace vela::reference;
    const auto inverse = [](auto x) { return inverse_root(x, inverse_root_seed(x)); };
    const auto over = [](auto x) { return root_over(x, splat<decltype(x)>(12345.678)); };
    const auto over_tiny = [](auto x) { return root_over(x, splat<decltype(x)>(1e-11)); };
    // A relative error of 1e-12 is at least 4500 units of the last place.
    const double low = std::log(1e-29), middle = std::log(1e-22), high = std::log(1e30);
    EXPECT_LT(worst_error(low, high, true, inverse, [](auto x) { return 1 / sqrtl(x); }), 4500);
    EXPECT_LT(worst_error(low, high, true, over, [](auto x) { return sqrtl(x) / 12345.678; }), 4500);
    EXPECT_LT(worst_error(low, middle, true, over_tiny, [](auto x) { return sqrtl(x) / 1e-11; }), 4500);
    EXPECT_TRUE(std::isfinite(inverse(0.0)));
    EXPECT_EQ(root_over(0.0, 0.0), 0.0);
    EXPECT_EQ(root_over(0.0, 1.0), 0.0);
}

} // namespace
