#include "psy/standard_model.hpp"

#include "psy/constants.hpp"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace vela {

void clear_history(double (&history)[history_values * max_lanes], int lanes) noexcept {
    std::ranges::fill(history, 0.0);
    for (int line = 0; line < history_values * max_lanes; line += 3 * lanes)
        std::fill_n(history + line, lanes, 1.0);
}

void standard_model::init(level which, int layer, int channels, int sample_rate) noexcept {
    // Cleared in place: a temporary of this size does not belong on the host's stack.
    static_assert(std::is_trivially_copyable_v<standard_model>);
    std::memset(static_cast<void *>(this), 0, sizeof *this);
    passes_ = make_frame_passes(which, layer, channels);
    make_partition_tables(tables_, sample_rate);
    restart();
}

void standard_model::restart() noexcept {
    clear_history(history_, passes_.kernels->lanes);
    newest_ = 0;
    std::ranges::fill(previous_threshold_, no_threshold);
}

void standard_model::analyze(const float *const *frame_start, smr_table &smr) noexcept {
    passes_.for_each_group([&](frame_passes::group group) { analyze_group(frame_start, group, smr); },
                           [&] { newest_ = 1 - newest_; });
}

void standard_model::analyze_group(const float *const *frame_start, frame_passes::group group,
                                   smr_table &smr) noexcept {
    const psy_kernels &kernels = *passes_.kernels;
    const int width = kernels.lanes;
    alignas(x_alignment) double spectrum[transform_length * max_lanes];
    spectrum_sums sums;
    double mask[padded_partitions * max_lanes], ratio[32 * max_lanes];
    const int history_length = history_values * width * (kernels.passes == 1 ? 2 : 1);
    double *const previous =
        passes_.count == 1 ? previous_threshold_ + group.index * line_count * width : nullptr;
    passes_.transform(frame_start, group, spectrum);
    kernels.analyze_lines(tables_, spectrum, history_ + group.index * history_length, newest_, sums);
    kernels.mask(tables_, sums, mask);
    kernels.ratios(tables_, sums, mask, previous, ratio);

    for (int t = 0; t < width; ++t) {
        double *const row = smr[passes_.channel_of(group, t)];
        for (int sb = 0; sb < 32; ++sb) {
            const double value = ratio[sb * width + t];
            row[sb] = passes_.pass_of(group, t) == 0 ? value : std::max(row[sb], value);
        }
    }
}

} // namespace vela
