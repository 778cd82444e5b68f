// Compiled once per level; see cmake/Kernels.cmake.
#include "coding/kernels.hpp"

#include "coding/noise_kernels.hpp"
#include "coding/pack_kernels.hpp"
#include "coding/sample_kernels.hpp"
#include "coding/tuned_scale_kernels.hpp"
#include "coding/tuned_search_kernels.hpp"
#include "coding/tuned_shared_kernels.hpp"

#include <algorithm>

namespace vela::VELA_LEVEL {

using V = lane_type<VELA_LANES>;
/// Subbands that are shared begin at any multiple of four.
using grouped_lanes = lane_type<std::min(VELA_LANES, 4)>;

extern const coding_kernels coding_table;
const coding_kernels coding_table{
    .peaks = peaks<V>,
    .combine = combine<V>,
    .quantize_layer1 = quantize_layer1<grouped_lanes>,
    .quantize_layer2 = quantize_layer2<grouped_lanes>,
    .sum_products = sum_products<V>,
    .choose_ternary = choose_ternary<V>,
    .choose_finer = choose_finer<V>,
    .refine = refine<V>,
    .fit = fit<V>,
    .fit_again = fit_again<V>,
    .mix = mix<V>,
    .decode = decode<V>,
    .own_costs = own_costs<V>,
    .shared_costs = shared_costs<V>,
    .climb = climb<V>,
    .reach = reach<V>,
    .favour = favour<V>,
    .best_steps = best_steps<V>,
    .pack_layer1 = pack_layer1,
    .pack_layer2 = pack_layer2,
};

} // namespace vela::VELA_LEVEL
