// Every kernel on made input: for the benchmarks, and for the test that all levels give the same.
#pragma once

#include "simd/level.hpp"

#include <functional>
#include <span>
#include <vector>

namespace vela::bench {

/// What the input is made of: numbers in and just beyond the usual range, or the ends of all ranges, not a
/// number and zeros of either sign among them.
enum class numbers { random, extreme };

/// A kernel with input of its own. A kernel with a memory goes on from run to run.
struct kernel_run {
    std::function<void()> run;
    std::function<std::vector<double>()> results; ///< of the latest run
};

struct kernel {
    const char *name;
    kernel_run (*make)(level which, numbers kind, unsigned seed);
};

std::span<const kernel> kernel_table();

} // namespace vela::bench
