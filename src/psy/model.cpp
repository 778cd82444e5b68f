#include "psy/model.hpp"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace vela {

namespace reference {
extern const psy_kernels psy_table;
}
namespace baseline {
extern const psy_kernels psy_table;
}
namespace avx2 {
extern const psy_kernels psy_table;
}

const psy_kernels &psy_kernels_of(level which) noexcept {
    switch (which) {
    case level::reference: return reference::psy_table;
    case level::baseline: return baseline::psy_table;
    case level::avx2: break;
    }
    return avx2::psy_table;
}

void psy_model::init(const psy_kernels &kernels, int layer, int sample_rate) noexcept {
    // Cleared in place: a temporary of this size does not belong on the host's stack.
    static_assert(std::is_trivially_copyable_v<psy_model>);
    std::memset(static_cast<void *>(this), 0, sizeof *this);
    kernels_ = &kernels;
    quiet_ = quiet_threshold(sample_rate).data();
    layer_ = layer;
    passes_ = layer == 1 ? 1 : 2;
    lead_ = layer == 1 ? 640 : 448;
    step_ = layer == 1 ? 384 : 576;
    make_partition_tables(tables_, sample_rate);
    // No limit for the first pass: above every threshold in quiet.
    for (channel_state &channel : channels_)
        std::ranges::fill(channel.previous_threshold, 60802371420160.0);
}

void psy_model::analyze(const float *const *frame_start, int channels, smr_table &smr) noexcept {
    const float *windows[4] = {};
    line_pairs pairs[4];
    int count = 0;
    for (int c = 0; c < channels; ++c) {
        for (int pass = 0; pass < passes_; ++pass)
            windows[count++] = frame_start[c] - lead_ + pass * step_;
    }
    kernels_->transform(windows, count, pairs);
    for (int c = 0; c < channels; ++c) {
        analyze_pass(channels_[c], pairs[c * passes_], smr[c]);
        for (int pass = 1; pass < passes_; ++pass) {
            smr_row ratio;
            analyze_pass(channels_[c], pairs[c * passes_ + pass], ratio);
            for (int sb = 0; sb < 32; ++sb)
                smr[c][sb] = std::max(smr[c][sb], ratio[sb]);
        }
    }
}

void psy_model::analyze_pass(channel_state &channel, const line_pairs &pairs, smr_row &ratio) noexcept {
    spectrum pass;
    double mask[padded_partitions];
    lines threshold;
    const pass_history &previous = channel.history[channel.newest];
    channel.newest = 1 - channel.newest;
    kernels_->analyze_lines(pairs, previous, channel.history[channel.newest], pass);
    kernels_->mask(tables_, pass, mask);
    line_thresholds(channel, mask, threshold);
    kernels_->ratios(pass.energy, threshold, ratio);
}

void psy_model::line_thresholds(channel_state &channel, const double (&mask)[padded_partitions],
                                lines &threshold) noexcept {
    // max and min as written keep the threshold in quiet where a mask is not a number.
    for (unsigned line = 0; line < line_count; ++line) {
        threshold[line] = std::max(quiet_[line], mask[tables_.of_line[line]]);
    }
    if (layer_ != 1) return;
    // Pre-echo: a pass may rise above the one before by 15 dB (a factor of 32) at most, down to a limit
    // of 25 dB (0.00316) below its own threshold.
    for (unsigned line = 0; line < line_count; ++line) {
        const double t = threshold[line];
        threshold[line] = std::max(0.00316 * t, std::min(t, channel.previous_threshold[line]));
        channel.previous_threshold[line] = 32 * t;
    }
}

} // namespace vela
