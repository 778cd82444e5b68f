// Every kernel at every level.
#include "host/encoding.hpp"
#include "kernel_table.hpp"

#include <cmath>
#include <gtest/gtest.h>

namespace {

using namespace vela::bench;

/// NaN or not, of the same sign down to that of zero.
bool is_same(double a, double b) {
    return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
}

class kernels : public testing::TestWithParam<kernel> {};

TEST_P(kernels, give_at_every_level_what_the_reference_gives) {
    for (unsigned seed = 0; seed < 120; ++seed) {
        const numbers kind = seed % 2 == 0 ? numbers::random : numbers::extreme;
        for (const vela::level which : mp1a_test::levels()) {
            const auto reference = GetParam().make(vela::level::reference, kind, seed);
            const auto other = GetParam().make(which, kind, seed);
            for (int round = 0; round < 6; ++round) {
                reference.run(), other.run();
                EXPECT_TRUE(std::ranges::equal(reference.results(), other.results(), is_same))
                    << vela::name_of(which) << ", seed " << seed << ", round " << round;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(all, kernels, testing::ValuesIn(kernel_table().begin(), kernel_table().end()),
                         [](const auto &test) { return std::string(test.param.name); });

TEST(levels, the_best_one_is_the_last_that_the_processor_runs) {
    EXPECT_EQ(vela::best_level(), mp1a_test::levels().back());
}

} // namespace
