#include "simd/level.hpp"

namespace vela {

bool is_supported(level which) noexcept {
    const bool supported[] = {
#define VELA_RUNS(name, runs) runs,
        VELA_LEVELS(VELA_RUNS)
#undef VELA_RUNS
    };
    return supported[static_cast<unsigned>(which)];
}

level best_level() noexcept {
    level best{};
    for (const level which : all_levels) {
        if (is_supported(which)) best = which;
    }
    return best;
}

const char *name_of(level which) noexcept {
    static constexpr const char *names[] = {
#define VELA_TEXT(name, runs) #name,
        VELA_LEVELS(VELA_TEXT)
#undef VELA_TEXT
    };
    return names[static_cast<unsigned>(which)];
}

} // namespace vela
