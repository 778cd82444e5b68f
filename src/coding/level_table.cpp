#include "coding/kernels.hpp"

namespace vela {

#define VELA_TABLE(name, runs)                                                                         \
    namespace name {                                                                                   \
    extern const coding_kernels coding_table;                                                          \
    }
VELA_LEVELS(VELA_TABLE)
#undef VELA_TABLE

const coding_kernels &coding_kernels_of(level which) noexcept {
    static constexpr const coding_kernels *tables[] = {
#define VELA_ADDRESS(name, runs) &name::coding_table,
        VELA_LEVELS(VELA_ADDRESS)
#undef VELA_ADDRESS
    };
    return *tables[static_cast<unsigned>(which)];
}

} // namespace vela
