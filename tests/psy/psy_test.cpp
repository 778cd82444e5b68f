// Filterbank and psychoacoustic model against their steps written out; the threshold in quiet.
#include "analysis/filterbank.hpp"
#include "host/signals.hpp"
#include "oracle/steps.hpp"
#include "psy/standard_model.hpp"
#include "psy/standard_quiet_threshold.hpp"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

namespace {

using namespace mp1a_test;
using namespace vela;

class steps : public testing::TestWithParam<std::tuple<int, int, int, waveform>> {};

TEST_P(steps, of_filterbank_and_model_give_what_the_standards_wording_gives) {
    constexpr int frames = 6;
    constexpr double untouched = 12345.0;
    const auto [layer, channels, rate, kind] = GetParam();
    const int frame_samples = layer == 1 ? 384 : 1152, parts = layer == 1 ? 1 : 3;
    // Two channels on the 16-bit scale with silence in front and behind.
    std::vector<float> input[2];
    for (unsigned c = 0; c < 2; ++c) {
        input[c].assign(640, 0.0F);
        for (const float sample : make_signal(kind, frames * frame_samples, 5 + c))
            input[c].push_back(32768 * sample);
        input[c].resize(input[c].size() + 1152);
    }
    const auto model = std::make_unique<vela::standard_model>();
    oracle::psy_model literal_model(layer, rate);
    model->init(level::reference, layer, channels, rate);
    for (int f = 0; f < frames; ++f) {
        const float *const start[2] = {&input[0][640 + f * frame_samples],
                                       &input[1][640 + f * frame_samples]};
        subband_samples samples;
        smr_table smr = {};
        std::fill_n(&samples[0][0][0][0], 2304, untouched);
        analyze_frame(analysis_kernels_of(level::reference), start, channels, parts, samples);
        model->analyze(start, smr);
        for (int i = 0; i < 2 * 36 * 32; ++i) {
            const int c = i / 32 / 36, step = i / 32 % 36, sb = i % 32;
            const double got = (&samples[0][0][0][0])[i];
            const bool written = c < channels && step < 12 * parts;
            static double expected[32];
            ASSERT_EQ(got == untouched, !written);
            if (!written || kind == waveform::broken) continue;
            if (sb == 0) oracle::analyze(start[c] + 32 * step + 31, expected);
            ASSERT_NEAR(got, expected[sb], kind == waveform::silence ? 0 : 1e-12) << i;
        }
        for (int c = 0; c < channels; ++c) {
            double expected[32];
            literal_model.analyze(start[c], c, expected);
            for (int sb = 0; sb < 32; ++sb) {
                ASSERT_TRUE(std::isfinite(smr[c][sb]));
                if (kind == waveform::broken) continue;
                ASSERT_NEAR(smr[c][sb], expected[sb], 1e-6) << f << ' ' << sb;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(all, steps,
                         testing::Combine(testing::Values(1, 2), testing::Values(1, 2),
                                          testing::Values(32000, 44100, 48000),
                                          testing::ValuesIn(all_waveforms)));

TEST(quiet_threshold, has_the_decibels_of_the_standards_table_at_the_ends_of_its_runs) {
    // ISO/IEC 11172-3 Table D.1: line and dB, around every change of a run's length.
    const std::pair<int, const char *> tables[] = {
        {48000,
         "0 42.10 3 13.87 47 -1.43 48 -1.88 49 -1.88 50 -2.34 68 -4.98 95 -1.24 96 -0.51 99 -0.51 "
         "191 7.19 192 8.33 199 8.33 327 56.29 328 59.06 331 59.06 332 68.00 427 68.00 428 96.00 512 "
         "96.00"},
        {44100, "0 45.05 2 18.70 76 -4.98 200 7.07 360 63.49 367 63.49 368 69.13 463 69.13 464 96.00"},
        {32000, "0 58.23 1 33.44 2 24.17 104 -4.97 471 47.76 472 51.03 479 51.03 480 96.00"}};
    for (const auto &[rate, table] : tables) {
        std::istringstream in(table);
        double db = 0;
        for (unsigned line = 0; in >> line >> db;)
            EXPECT_NEAR(10 * std::log10(quiet_threshold(rate)[line] / 60776765194240.0) + 96, db, 1e-5)
                << rate << ", line " << line;
    }
}

} // namespace
