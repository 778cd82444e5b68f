// Compiled once per level; see cmake/Kernels.cmake.
#include "analysis/kernels.hpp"

#include "analysis/filterbank_kernel.hpp"
#include "analysis/pcm_kernel.hpp"

#include <algorithm>

namespace vela::VELA_LEVEL {

extern const analysis_kernels analysis_table;

/// A part's twelve time steps are three groups of four lanes.
using step_lanes = lane_type<std::min(VELA_LANES, 4)>;

const analysis_kernels analysis_table{
    .s16 = kernels_for<pcm_s16>,
    .s24 = kernels_for<pcm_s24>,
    .f32 = kernels_for<pcm_f32>,
    .to_doubles = to_doubles<lane_type<VELA_LANES>>,
    .analyze_part = analyze_part<step_lanes>,
};

} // namespace vela::VELA_LEVEL
