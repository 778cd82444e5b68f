#include "analysis/filterbank.hpp"

namespace vela {

void analyze_frame(const analysis_kernels &kernels, const float *const *frame_start, int channels,
                   int parts, subband_samples &out) noexcept {
    // A step's window of 512 samples ends with its 32 new ones.
    constexpr int history = 480;
    alignas(32) double samples[history + 3 * 12 * 32];
    for (int c = 0; c < channels; ++c) {
        kernels.to_doubles(frame_start[c] - history, history + 12 * 32 * parts, samples);
        for (int part = 0; part < parts; ++part)
            kernels.analyze_part(samples + 12 * 32 * part, out[c][part]);
    }
}

} // namespace vela
