#include "analysis/filterbank.hpp"

namespace vela {

namespace reference {
extern const analysis_kernels analysis_table;
}
namespace baseline {
extern const analysis_kernels analysis_table;
}
namespace avx2 {
extern const analysis_kernels analysis_table;
}

const analysis_kernels &analysis_kernels_of(level which) noexcept {
    switch (which) {
    case level::reference:
        return reference::analysis_table;
    case level::baseline:
        return baseline::analysis_table;
    case level::avx2:
        break;
    }
    return avx2::analysis_table;
}

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
