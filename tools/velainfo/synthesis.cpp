#include "velainfo/synthesis.hpp"

#include "parser/standard_tables.hpp"

// The window, as the encoder has it: what is compared here is the encoder's own work.
#include "analysis/window_table.hpp"

#include <array>
#include <cmath>
#include <memory>
#include <numbers>

namespace tools {
namespace {

struct tables {
    float matrix[32][64]; ///< N[i][k] = cos((16 + i) (2 k + 1) pi / 64), [k][i]
    float window[512];    ///< D[i] = 32 C[i]
    float factor[64];

    tables() {
        for (int k = 0; k < 32; ++k)
            for (int i = 0; i < 64; ++i)
                matrix[k][i] =
                    static_cast<float>(std::cos((16 + i) * (2 * k + 1) * std::numbers::pi / 64));
        for (int i = 0; i < 512; ++i)
            window[i] = static_cast<float>(32e-9 * static_cast<double>(vela::printed_window(i)));
        for (int i = 0; i < 64; ++i)
            factor[i] = static_cast<float>(scalefactor(i));
    }
};

const tables &table() {
    static const auto made = std::make_unique<tables>();
    return *made;
}

} // namespace

void requantize(const parsed_frame &frame, const sample_codes &codes, frame_subbands &out) {
    for (int ch = 0; ch < frame.channels(); ++ch) {
        for (int i = 0; i < 12 * frame.parts; ++i) {
            for (int sb = 0; sb < 32; ++sb) {
                const int steps = frame.steps[ch][sb];
                out[ch][i][sb] = steps == 0
                                     ? 0
                                     : static_cast<float>(fraction_of(codes.code[ch][i][sb], steps))
                                           * table().factor[frame.scalefactor[ch][i / 12][sb]];
            }
        }
    }
}

void synthesis_filterbank::step(const float (&subbands)[32], float (&pcm)[32]) {
    newest_ = (newest_ + 15) % 16;
    float *const block = v_ + 64 * newest_;
    std::fill_n(block, 64, 0.0F);
    for (int k = 0; k < 32; ++k)
        for (int i = 0; i < 64; ++i)
            block[i] += table().matrix[k][i] * subbands[k];
    std::fill_n(pcm, 32, 0.0F);
    for (int i = 0; i < 16; ++i) {
        // U takes the first half of even blocks and the second half of odd ones.
        const float *const u = v_ + 64 * ((newest_ + i) % 16) + (i % 2 == 0 ? 0 : 32);
        for (int j = 0; j < 32; ++j)
            pcm[j] += u[j] * table().window[32 * i + j];
    }
}

} // namespace tools
