// Both models against their steps written out; the threshold in quiet.
#include "host/signals.hpp"
#include "oracle/tuned.hpp"
#include "psy/standard_model.hpp"
#include "psy/standard_quiet_threshold.hpp"
#include "psy/tuned_model.hpp"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

namespace {

using namespace mp1a_test;
using namespace vela;

TEST(models, give_what_their_wording_gives) {
    for (int i = 0; i < 2 * 3 * static_cast<int>(std::size(all_waveforms)); ++i) {
        const int layer = 1 + i % 2, rate = std::array{32000, 44100, 48000}[i / 2 % 3];
        const waveform kind = all_waveforms[i / 6];
        const int frame_samples = layer == 1 ? 384 : 1152;
        // Two channels on the 16-bit scale with silence in front and behind.
        std::vector<float> input[2];
        for (unsigned c = 0; c < 2; ++c) {
            input[c].assign(640, 0.0F);
            for (const float sample : make_signal(kind, 5 * frame_samples, 5 + c))
                input[c].push_back(32768 * sample);
            input[c].resize(input[c].size() + 1152);
        }
        const auto standard = std::make_unique<vela::standard_model>();
        const auto tuned = std::make_unique<vela::tuned_model>();
        standard->init(level::reference, layer, 2, rate);
        tuned->init(level::reference, layer, 2, rate);
        oracle::psy_model literal(layer, rate);
        std::vector<oracle::tuned_model> literal_tuned(2, oracle::tuned_model(layer, rate));
        for (int f = 0; f < 5; ++f) {
            const float *const start[2] = {&input[0][640 + f * frame_samples],
                                           &input[1][640 + f * frame_samples]};
            smr_table smr;
            noise_weights weights;
            standard->analyze(start, 1, &smr);
            tuned->analyze(start, 1, &weights);
            for (int c = 0; c < 2; ++c) {
                double ratio[32], weight[3][32];
                literal.analyze(start[c], c, ratio);
                literal_tuned[c].analyze(start[c], weight);
                for (int sb = 0; sb < 32; ++sb) {
                    SCOPED_TRACE(testing::Message() << i << ", frame " << f << ", subband " << sb);
                    ASSERT_TRUE(std::isfinite(smr[c][sb]) && std::isfinite(weights[c][0][sb]));
                    if (kind == waveform::broken) continue;
                    ASSERT_NEAR(smr[c][sb], ratio[sb], 1e-6);
                    for (int part = 0; part < (layer == 1 ? 1 : 3); ++part)
                        ASSERT_NEAR(weights[c][part][sb] / weight[part][sb], 1, 1e-8);
                }
            }
        }
    }
}

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
