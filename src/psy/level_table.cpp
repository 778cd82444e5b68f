#include "psy/kernels.hpp"

namespace vela {

#define VELA_TABLE(name, runs)                                                                         \
    namespace name {                                                                                   \
    const psy_kernels &psy_table(int channels, int passes) noexcept;                                   \
    }
VELA_LEVELS(VELA_TABLE)
#undef VELA_TABLE

const psy_kernels &psy_kernels_of(level which, int channels, int passes) noexcept {
    static constexpr const psy_kernels &(*tables[])(int, int) noexcept = {
#define VELA_ADDRESS(name, runs) name::psy_table,
        VELA_LEVELS(VELA_ADDRESS)
#undef VELA_ADDRESS
    };
    return tables[static_cast<unsigned>(which)](channels, passes);
}

} // namespace vela
