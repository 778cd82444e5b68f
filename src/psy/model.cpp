#include "psy/model.hpp"

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

void psy_model::init(level kernels, int layer, int channels, int sample_rate) noexcept {
    // Cleared in place: a temporary of this size does not belong on the host's stack.
    static_assert(std::is_trivially_copyable_v<psy_model>);
    std::memset(static_cast<void *>(this), 0, sizeof *this);
    kernels_ = &psy_kernels_of(kernels, layer, channels);
    layer_ = layer;
    channels_ = channels;
    passes_ = layer == 1 ? 1 : 2;
    lead_ = layer == 1 ? 640 : 448;
    step_ = layer == 1 ? 384 : 576;
    make_partition_tables(tables_, sample_rate);
    restart();
}

void psy_model::restart() noexcept {
    clear_history(history_, kernels_->lanes);
    newest_ = 0;
    std::ranges::fill(previous_threshold_, no_threshold);
}

void psy_model::analyze(const float *const *frame_start, smr_table &smr) noexcept {
    const int group_channels = kernels_->lanes / kernels_->passes;
    for (int pass = 0; pass < passes_; pass += kernels_->passes) {
        for (int c = 0; c < channels_; c += group_channels) {
            analyze_group(frame_start, {c / group_channels, c, pass}, smr);
        }
        newest_ = 1 - newest_;
    }
}

void psy_model::analyze_group(const float *const *frame_start, lane_group group,
                              smr_table &smr) noexcept {
    const int width = kernels_->lanes;
    const auto channel_of = [&](int lane) { return group.first_channel + lane / kernels_->passes; };
    const auto pass_of = [&](int lane) { return group.first_pass + lane % kernels_->passes; };
    const float *windows[max_lanes] = {};
    for (int t = 0; t < width; ++t)
        windows[t] = frame_start[channel_of(t)] - lead_ + pass_of(t) * step_;

    alignas(x_alignment) double spectrum[transform_length * max_lanes];
    spectrum_sums sums;
    double mask[padded_partitions * max_lanes], ratio[32 * max_lanes];
    const int history_length = history_values * width * (kernels_->passes == 1 ? 2 : 1);
    double *const previous =
        layer_ == 1 ? previous_threshold_ + group.index * line_count * width : nullptr;
    kernels_->transform(windows, spectrum);
    kernels_->analyze_lines(tables_, spectrum, history_ + group.index * history_length, newest_, sums);
    kernels_->mask(tables_, sums, mask);
    kernels_->ratios(tables_, sums, mask, previous, ratio);

    for (int t = 0; t < width; ++t) {
        double *const row = smr[channel_of(t)];
        for (int sb = 0; sb < 32; ++sb) {
            const double value = ratio[sb * width + t];
            row[sb] = pass_of(t) == 0 ? value : std::max(row[sb], value);
        }
    }
}

} // namespace vela
