#include "oracle/analysis.hpp"

#include "analysis/window_table.hpp"

#include <cmath>
#include <numbers>

namespace oracle {

namespace {

double window(int i) {
    return static_cast<double>(vela::printed_window(i)) * 1e-9;
}

/// cos((2 i + 1) n pi / 64), n of any sign.
double matrix(int i, int n) {
    static const auto table = [] {
        std::array<double, 128> c{};
        for (unsigned k = 0; k < 128; ++k)
            c[k] = std::cos(k * std::numbers::pi / 64);
        return c;
    }();
    return table[static_cast<unsigned>((2 * i + 1) * n) % 128];
}

} // namespace

subbands analyze(const float *newest) {
    std::array<double, 64> y{};
    for (int i = 0; i < 512; ++i)
        y[static_cast<unsigned>(i % 64)] += window(i) * static_cast<double>(newest[-i]) / 32768;
    subbands s{};
    for (int i = 0; i < 32; ++i) {
        for (int k = 0; k < 64; ++k)
            s[static_cast<unsigned>(i)] += matrix(i, k - 16) * y[static_cast<unsigned>(k)];
    }
    return s;
}

} // namespace oracle
