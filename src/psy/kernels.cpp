// Compiled once per level; see cmake/Kernels.cmake.
#include "psy/kernels.hpp"

#include "psy/spectrum_kernel.hpp"
#include "psy/threshold_kernel.hpp"
#include "psy/transform_kernel.hpp"

namespace vela::VELA_LEVEL {

using V = lane_type<VELA_LANES>;

extern const psy_kernels psy_table;
const psy_kernels psy_table{
    .transform = transform<V>,
    .analyze_lines = analyze_lines<V>,
    .mask = mask<V>,
    .ratios = ratios<V>,
};

} // namespace vela::VELA_LEVEL
