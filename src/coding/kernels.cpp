// Compiled once per level; see cmake/Kernels.cmake.
#include "coding/kernels.hpp"

#include "coding/noise_kernels.hpp"
#include "coding/pack_kernels.hpp"
#include "coding/sample_kernels.hpp"

namespace vela::VELA_LEVEL {

using V = lane_type<VELA_LANES>;
/// Subbands that are shared begin at any multiple of four.
using quantizer_lanes = lane_type<(VELA_LANES < 4 ? VELA_LANES : 4)>;

extern const coding_kernels coding_table;
const coding_kernels coding_table{
    .peaks = peaks<V>,
    .combine = combine<V>,
    .quantize_layer1 = quantize_layer1<quantizer_lanes>,
    .quantize_layer2 = quantize_layer2<quantizer_lanes>,
    .sum_products = sum_products<V>,
    .own_noise = own_noise<V>,
    .shared_noise = shared_noise<V>,
    .add_noise_costs = add_noise_costs<V>,
    .pack_layer1 = pack_layer1,
    .pack_layer2 = pack_layer2,
};

} // namespace vela::VELA_LEVEL
