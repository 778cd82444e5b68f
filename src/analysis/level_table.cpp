#include "analysis/kernels.hpp"

namespace vela {

#define VELA_TABLE(name, runs)                                                                         \
    namespace name {                                                                                   \
    extern const analysis_kernels analysis_table;                                                      \
    }
VELA_LEVELS(VELA_TABLE)
#undef VELA_TABLE

const analysis_kernels &analysis_kernels_of(level which) noexcept {
    static constexpr const analysis_kernels *tables[] = {
#define VELA_ADDRESS(name, runs) &name::analysis_table,
        VELA_LEVELS(VELA_ADDRESS)
#undef VELA_ADDRESS
    };
    return *tables[static_cast<unsigned>(which)];
}

} // namespace vela
