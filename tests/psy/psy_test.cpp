// The psychoacoustic model against its steps written out, and the threshold in quiet.
#include "host/encoding.hpp"
#include "host/signals.hpp"
#include "oracle/psy_model.hpp"
#include "psy/model.hpp"
#include "psy/quiet_threshold.hpp"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>

namespace {

using namespace mp1a_test;
using namespace vela;

constexpr int frames = 6;

/// Two channels of a signal on the 16-bit scale with silence in front.
struct input {
    std::vector<float> channel[2];
    input(waveform kind, int layer) {
        for (unsigned c = 0; c < 2; ++c) {
            channel[c] = make_signal(kind, frames * (layer == 1 ? 384 : 1152), 5 + c);
            for (float &sample : channel[c])
                sample *= 32767;
            channel[c].insert(channel[c].begin(), 640, 0.0F);
            channel[c].insert(channel[c].end(), 1152, 0.0F);
        }
    }
    const float *start(int frame, int c, int layer) const {
        return channel[c].data() + 640 + frame * (layer == 1 ? 384 : 1152);
    }
};

struct ratios {
    smr_table of_frame[frames] = {};
};

std::unique_ptr<ratios> run(level which, const input &in, int layer, int channels, int rate) {
    auto model = std::make_unique<vela::psy_model>();
    auto out = std::make_unique<ratios>();
    model->init(which, layer, channels, rate);
    for (int f = 0; f < frames; ++f) {
        const float *const start[2] = {in.start(f, 0, layer), in.start(f, 1, layer)};
        model->analyze(start, out->of_frame[f]);
    }
    return out;
}

class psy : public testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(psy, ratios_equal_the_literal_model_and_every_level_the_reference) {
    const auto [layer, channels, rate] = GetParam();
    for (const waveform kind : all_waveforms) {
        const input in(kind, layer);
        const auto reference = run(level::reference, in, layer, channels, rate);
        oracle::psy_model model(layer, rate);
        for (int f = 0; f < frames; ++f) {
            for (int c = 0; c < channels; ++c) {
                const auto &got = reference->of_frame[f][c];
                double expected[32];
                model.analyze(in.start(f, c, layer), c, expected);
                for (int sb = 0; sb < 32; ++sb) {
                    ASSERT_TRUE(std::isfinite(got[sb]));
                    if (kind == waveform::broken) continue;
                    ASSERT_NEAR(got[sb], expected[sb], 1e-6)
                        << "signal " << static_cast<int>(kind) << ", frame " << f << ", channel " << c
                        << ", subband " << sb;
                }
            }
        }
        for (const level which : levels()) {
            const auto got = run(which, in, layer, channels, rate);
            for (int f = 0; f < frames; ++f) {
                const std::size_t written = sizeof(double[32]) * static_cast<unsigned>(channels);
                ASSERT_EQ(std::memcmp(reference->of_frame[f], got->of_frame[f], written), 0)
                    << "level " << static_cast<int>(which) << ", frame " << f;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(layers_channels_rates, psy,
                         testing::Combine(testing::Values(1, 2), testing::Values(1, 2),
                                          testing::Values(32000, 44100, 48000)));

TEST(quiet_threshold, follows_the_formula_on_its_grid_and_ends_where_nothing_is_audible) {
    const struct {
        int rate, last_rising, final;
        double rows[3];
        int least_line;
        double least, last;
    } cases[] = {
        {48000, 332, 428, {247592464.0, 3987838.75, 852584.69}, 68, 4849.95, 96324681728.0},
        {44100, 368, 464, {488357088.0, 5898447.0, 1131716.5}, 76, 4849.95, 124950298624.0},
        {32000, 472, 480, {10156347392.0, 33708348.0, 3987838.75}, 104, 4861.13, 1935251712.0}};
    for (const auto &c : cases) {
        const auto &table = quiet_threshold(c.rate);
        for (unsigned line = 0; line < 3; ++line)
            EXPECT_EQ(table[line], c.rows[line]);
        EXPECT_EQ(table[static_cast<unsigned>(c.least_line)], c.least);
        EXPECT_EQ(table[static_cast<unsigned>(c.last_rising)], c.last);
        for (int line = 0; line < 513; ++line) {
            const double value = table[static_cast<unsigned>(line)];
            EXPECT_GE(value, c.least);
            if (line >= c.last_rising) {
                EXPECT_EQ(value, line < c.final ? c.last : 60776765194240.0) << line;
                continue;
            }
            const int length = line < 48 ? 1 : line < 96 ? 2 : line < 192 ? 4 : 8;
            int end = line / length * length + length;
            if (c.rate == 48000 && line / 4 == 328 / 4) end = 332;
            const double f = end * (c.rate / 1024.0) / 1000;
            const double db = 3.64 * std::pow(f, -0.8) - 6.5 * std::exp(-0.6 * (f - 3.3) * (f - 3.3))
                              + 0.001 * std::pow(f, 4);
            const double energy = 15266.433184245481 * std::pow(10, std::round(db * 100) / 1000);
            EXPECT_NEAR(value / energy, 1, 2e-6) << c.rate << ", line " << line;
        }
    }
}

} // namespace
