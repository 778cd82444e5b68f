#include "simd/level.hpp"

namespace vela {

bool is_supported(level which) noexcept {
    return which != level::avx2 || __builtin_cpu_supports("avx2") != 0;
}

level best_level() noexcept {
    return is_supported(level::avx2) ? level::avx2 : level::baseline;
}

} // namespace vela
