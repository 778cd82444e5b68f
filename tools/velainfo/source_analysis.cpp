#include "velainfo/source_analysis.hpp"

// Thresholds are worth something only if they are those of the encoder, so its own front end does the
// work; no program but this one compares, so the library does not export it.
#include "analysis/filterbank.hpp"
#include "analysis/pcm_input.hpp"
#include "psy/standard_model.hpp"

#include "settings/record.hpp"

#include <cstring>

namespace tools {

struct source_analysis::state {
    int layer, channels;
    bool has_model;
    const vela::analysis_kernels &kernels = vela::analysis_kernels_of(vela::best_level());
    vela::pcm_input input;
    vela::standard_model model;
};

source_analysis::source_analysis(int layer, int channels, int rate, bool has_model)
    : state_(std::make_unique<state>(state{
        .layer = layer, .channels = channels, .has_model = has_model, .input = {}, .model = {}})) {
    state_->input.init(state_->kernels, 32, channels, layer);
    if (has_model) state_->model.init(vela::best_level(), layer, channels, rate);
}

source_analysis::~source_analysis() = default;

void source_analysis::analyze(std::span<const float> pcm, double (&subbands)[2][36][32],
                              double (&smr)[2][32]) {
    std::span bytes(reinterpret_cast<const std::uint8_t *>(pcm.data()), pcm.size_bytes());
    state_->input.fill_frames(bytes, false);
    const auto start = state_->input.frame_start(0);
    if (state_->has_model) state_->model.analyze(start.begin(), 1, &smr);
    vela::subband_samples samples;
    vela::analyze_frame(state_->kernels, start.begin(), state_->channels, state_->layer == 1 ? 1 : 3,
                        samples);
    static_assert(sizeof samples == sizeof subbands);
    std::memcpy(subbands, samples, sizeof samples);
}

} // namespace tools
