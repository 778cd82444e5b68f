#include "psy/tuned_model.hpp"

#include <algorithm>

namespace vela {

void tuned_model::init(level which, int layer, int channels, int sample_rate) noexcept {
    passes_ = make_frame_passes(which, layer, channels);
    make_tuned_tables(tables_, sample_rate, passes_.step);
    restart();
}

void tuned_model::restart() noexcept {
    std::ranges::fill(history_[0], 0.0);
    std::ranges::fill(history_[1], 0.0);
}

void tuned_model::analyze(const float *const *frame_start, int frames,
                          noise_weights *weights) noexcept {
    passes_.for_each_group(
        frames, [&](frame_passes::group group) { analyze_group(frame_start, group, weights); });
    if (passes_.count == 1) return;
    // The passes of Layer II look at the first and at the last part.
    for (int f = 0; f < frames; ++f) {
        for (int c = 0; c < passes_.channels; ++c) {
            auto &[first, middle, last] = weights[f][c];
            for (int sb = 0; sb < 32; ++sb)
                middle[sb] = (first[sb] + last[sb]) * 0.5;
        }
    }
}

void tuned_model::analyze_group(const float *const *frame_start, frame_passes::group group,
                                noise_weights *weights) noexcept {
    const psy_kernels &kernels = group.kernels;
    const int width = kernels.lanes;
    alignas(x_alignment) double spectrum[transform_length * max_lanes];
    double energy[padded_partitions * max_lanes], weight[32 * max_lanes];
    passes_.transform(frame_start, group, spectrum);
    kernels.partition_energies(tables_.partitions, spectrum, energy);
    kernels.weigh_noise(tables_, energy, group.part_of(history_[0], 2 * padded_partitions), weight);
    for (int t = 0; t < width; ++t) {
        const int pass = group.pass_of(t);
        double *const row =
            weights[pass / passes_.count][group.channel_of(t)][2 * (pass % passes_.count)];
        for (int sb = 0; sb < 32; ++sb)
            row[sb] = weight[sb * width + t];
    }
}

} // namespace vela
