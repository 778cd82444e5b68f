// The instruction-set levels that kernels are compiled for, and the choice among them.
#pragma once

#include "simd/level_list.hpp"

namespace vela {

/// One compilation of the kernels. Every level gives the same bytes.
///
///     reference   plain double, one lane: the readable original that every other level must equal
///     baseline    x86-64 as every machine has it (SSE2), two lanes
///     avx2        AVX2 and BMI2, four lanes
///     avx512      AVX-512 as of the second generation of processors that have it, eight lanes
///     neon        AArch64 as every machine has it, two lanes
///
/// src/CMakeLists.txt lists them, with what each needs of the processor.
enum class level {
#define VELA_NAME(name, runs) name,
    VELA_LEVELS(VELA_NAME)
#undef VELA_NAME
};

/// Every level, slowest first.
inline constexpr level all_levels[] = {
#define VELA_VALUE(name, runs) level::name,
    VELA_LEVELS(VELA_VALUE)
#undef VELA_VALUE
};

/// True when this machine runs kernels of that level.
bool is_supported(level which) noexcept;

/// The fastest level that this machine runs.
level best_level() noexcept;

const char *name_of(level which) noexcept;

} // namespace vela

/// Kernel files are compiled once per level, each time with VELA_LEVEL naming the namespace that all of
/// their functions live in. Other files that include a kernel header share this one.
#ifndef VELA_LEVEL
#define VELA_LEVEL reference
#define VELA_LANES 1
#endif
