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
    // A step's window reaches 15 rows of 32 samples back.
    constexpr int history_rows = 15;
    sample_columns columns;
    for (int c = 0; c < channels; ++c) {
        kernels.arrange(frame_start[c] - 32 * history_rows, 12 * parts + history_rows, columns);
        for (int part = 0; part < parts; ++part)
            kernels.analyze_part(columns, 12 * part, out[c][part]);
    }
}

} // namespace vela
