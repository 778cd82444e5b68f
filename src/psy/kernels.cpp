// Compiled once per level; see cmake/Kernels.cmake.
#include "psy/kernels.hpp"

#include "psy/standard_spectrum_kernel.hpp"
#include "psy/standard_threshold_kernel.hpp"
#include "psy/transform_kernel.hpp"
#include "psy/tuned_kernel.hpp"

namespace vela::VELA_LEVEL {

namespace {

/// Lanes that passes leave free are filled with neighbouring lines where histories allow it, or with the
/// partitions of a group.
template <int width, int channels>
using lines = lane_type<(width <= 2 * channels ? VELA_LANES : width)>;
template <int width>
using partitions =
    lane_type<(width * spreading_group < VELA_LANES ? width * spreading_group : VELA_LANES)>;

template <int width, int channels>
constexpr psy_kernels arrangement{
    .lanes = width,
    .channels = channels,
    .transform = transform<lane_type<width>>,
    .analyze_lines = analyze_lines<lines<width, channels>, width, channels>,
    .mask = mask<partitions<width>, width>,
    .ratios = ratios<lane_type<VELA_LANES>, width, channels>,
    .partition_energies = partition_energies<lane_type<width>>,
    .weigh_noise = weigh_noise<lines<width, channels>, width, channels>,
};

template <int width, int channels>
const psy_kernels &choose(int passes) {
    if constexpr (width > channels) {
        if (width > passes * channels) return choose<width / 2, channels>(passes);
    }
    return arrangement<width, channels>;
}

} // namespace

const psy_kernels &psy_table(int channels, int passes) noexcept;
const psy_kernels &psy_table(int channels, int passes) noexcept {
    if constexpr (VELA_LANES > 1) {
        if (channels == 2) return choose<VELA_LANES, 2>(passes);
    }
    return choose<VELA_LANES, 1>(passes);
}

} // namespace vela::VELA_LEVEL
