// The instruction-set levels that kernels are compiled for, and the choice among them.
#pragma once

namespace vela {

/// One compilation of the kernels. Every level gives the same bytes.
enum class level {
    reference, ///< plain double, one lane: the readable original that every other level must equal
    baseline,  ///< x86-64 as every machine has it (SSE2), two lanes
    avx2,      ///< AVX2 and BMI2, four lanes
};

/// Every level, slowest first.
inline constexpr level all_levels[] = {level::reference, level::baseline, level::avx2};

/// True when this machine runs kernels of that level.
bool is_supported(level which) noexcept;

/// The fastest level that this machine runs.
level best_level() noexcept;

} // namespace vela

/// Kernel files are compiled once per level, each time with VELA_LEVEL naming the namespace that all of
/// their functions live in. Other files that include a kernel header share this one.
#ifndef VELA_LEVEL
#define VELA_LEVEL reference
#define VELA_LANES 1
#endif
