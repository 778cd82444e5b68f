// Compiled once per level; see cmake/Kernels.cmake.
#include "coding/kernels.hpp"

#include "coding/noise_kernels.hpp"
#include "coding/pack_kernels.hpp"
#include "coding/sample_kernels.hpp"
#include "coding/tuned_scale_kernels.hpp"
#include "coding/tuned_search_kernels.hpp"

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
    .sum_products = sum_products<grouped_lanes>,
    .choose_ternary = choose_ternary<grouped_lanes>,
    .choose_finer = choose_finer<V>,
    .refine = refine<grouped_lanes>,
    .fit = fit<grouped_lanes>,
    .fit_again = fit_again<grouped_lanes>,
    .decode = decode<grouped_lanes>,
    .own_noise = own_noise<grouped_lanes>,
    .shared_noise = shared_noise<grouped_lanes>,
    .add_noise_costs = add_noise_costs<grouped_lanes>,
    .finish_costs = finish_costs<grouped_lanes>,
    .reach = reach<grouped_lanes>,
    .first_slopes = first_slopes<grouped_lanes>,
    .favour = favour<grouped_lanes>,
    .best_steps = best_steps<grouped_lanes>,
    .pack_layer1 = pack_layer1,
    .pack_layer2 = pack_layer2,
};

} // namespace vela::VELA_LEVEL
