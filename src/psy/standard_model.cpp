#include "psy/standard_model.hpp"

#include "psy/standard_constants.hpp"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace vela {

void standard_model::init(level which, int layer, int channels, int sample_rate) noexcept {
    // Cleared in place: a temporary of this size does not belong on the host's stack.
    static_assert(std::is_trivially_copyable_v<standard_model>);
    std::memset(static_cast<void *>(this), 0, sizeof *this);
    passes_ = make_frame_passes(which, layer, channels);
    make_standard_tables(tables_, sample_rate);
    restart();
}

void standard_model::restart() noexcept {
    // Magnitude 0 and phase 0, whose cosine is 1.
    std::ranges::fill(history_, 0.0);
    const int group = 2 * passes_.side_by_side();
    for (int first = 0; first < 4 * history_values; first += group * history_values)
        std::fill_n(history_ + first, group * line_count, 1.0);
    std::ranges::fill(thresholds_, no_threshold);
}

void standard_model::analyze(const float *const *frame_start, smr_table &smr) noexcept {
    passes_.for_each_group([&](frame_passes::group group) { analyze_group(frame_start, group, smr); });
}

void standard_model::analyze_group(const float *const *frame_start, frame_passes::group group,
                                   smr_table &smr) noexcept {
    const psy_kernels &kernels = group.kernels;
    const int width = kernels.lanes;
    alignas(x_alignment) double spectrum[transform_length * max_lanes];
    spectrum_sums sums;
    double mask[padded_partitions * max_lanes], ratio[32 * max_lanes];
    const pass_history before = group.part_of(history_, 2 * history_values);
    const pass_history thresholds =
        passes_.count == 1 ? group.part_of(thresholds_, line_count) : pass_history{};
    passes_.transform(frame_start, group, spectrum);
    kernels.analyze_lines(tables_, spectrum, before, sums);
    kernels.mask(tables_, sums, mask);
    kernels.ratios(tables_, sums, mask, thresholds, ratio);

    for (int t = 0; t < width; ++t) {
        double *const row = smr[group.channel_of(t)];
        for (int sb = 0; sb < 32; ++sb) {
            const double value = ratio[sb * width + t];
            row[sb] = group.pass_of(t) == 0 ? value : std::max(row[sb], value);
        }
    }
}

} // namespace vela
