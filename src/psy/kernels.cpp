// Compiled once per level; see cmake/Kernels.cmake.
#include "psy/kernels.hpp"

#include "psy/standard_spectrum_kernel.hpp"
#include "psy/standard_threshold_kernel.hpp"
#include "psy/transform_kernel.hpp"
#include "psy/tuned_kernel.hpp"

namespace vela::VELA_LEVEL {

namespace {

template <int width, int passes>
constexpr psy_kernels arrangement{
    .lanes = width,
    .passes = passes,
    .transform = transform<lane_type<width>>,
    .analyze_lines = analyze_lines<lane_type<width>, passes>,
    .mask = mask<lane_type<width>>,
    .ratios = ratios<lane_type<width>>,
    .partition_energies = partition_energies<lane_type<width>>,
    .weigh_noise = weigh_noise<lane_type<width>, passes>,
};

/// As many passes of a frame side by side as there are lanes for.
template <int widest>
const psy_kernels &choose(int layer, int channels) {
    if constexpr (widest == 1) {
        return arrangement<1, 1>;
    } else {
        if (layer == 1) return channels == 2 ? arrangement<2, 1> : arrangement<1, 1>;
        return channels == 2 ? arrangement<widest, 2> : arrangement<2, 2>;
    }
}

} // namespace

const psy_kernels &psy_table(int layer, int channels) noexcept;
const psy_kernels &psy_table(int layer, int channels) noexcept {
    return choose<VELA_LANES>(layer, channels);
}

} // namespace vela::VELA_LEVEL
