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
    passes_.clear(history_[0], 2 * history_values, history_values,
                  [](int value) { return value < kept_lines ? 1.0 : 0.0; });
    passes_.clear(thresholds_[0], line_count, line_count, [](int) { return no_threshold; });
}

void standard_model::analyze(const float *const *frame_start, int frames, smr_table *smr) noexcept {
    passes_.for_each_group(frames,
                           [&](frame_passes::group group) { analyze_group(frame_start, group, smr); });
}

void standard_model::analyze_group(const float *const *frame_start, frame_passes::group group,
                                   smr_table *smr) noexcept {
    const psy_kernels &kernels = group.kernels;
    const int width = kernels.lanes;
    alignas(x_alignment) double spectrum[transform_length * max_lanes];
    spectrum_sums sums;
    double mask[padded_partitions * max_lanes], ratio[32 * max_lanes];
    double *const history = group.part_of(history_[0], 2 * history_values);
    double *const thresholds = passes_.count == 1 ? group.part_of(thresholds_[0], line_count) : nullptr;
    passes_.transform(frame_start, group, spectrum);
    kernels.analyze_lines(tables_, spectrum, history, sums);
    kernels.mask(tables_, sums, mask);
    kernels.ratios(tables_, sums, mask, thresholds, ratio);

    for (int t = 0; t < width; ++t) {
        const int pass = group.pass_of(t);
        double *const row = smr[pass / passes_.count][group.channel_of(t)];
        for (int sb = 0; sb < 32; ++sb) {
            const double value = ratio[sb * width + t];
            row[sb] = pass % passes_.count == 0 ? value : std::max(row[sb], value);
        }
    }
}

} // namespace vela
