// Every kernel alone, at every level.
#include "kernel_table.hpp"
#include "signal.hpp"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using namespace vela;
using namespace vela::bench;

const int kernels_registered = [] {
    for (const level which : supported_levels()) {
        for (const kernel &kernel : kernel_table()) {
            benchmark::RegisterBenchmark(
                (std::string("kernel/") + name_of(which) + "/" + kernel.name).c_str(),
                [which, &kernel](benchmark::State &state) {
                    const kernel_run run = kernel.make(which, numbers::random, 1);
                    for (auto _ : state) {
                        run.run();
                        benchmark::ClobberMemory();
                    }
                });
        }
    }
    return 0;
}();

} // namespace
