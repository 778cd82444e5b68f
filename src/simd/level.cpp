#include "simd/level.hpp"

namespace vela {

level best_level() noexcept {
    return level::baseline;
}

} // namespace vela
