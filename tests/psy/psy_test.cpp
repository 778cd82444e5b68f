// Filterbank and psychoacoustic model against their steps written out, at every level; the threshold in
// quiet.
#include "host/encoding.hpp"
#include "host/signals.hpp"
#include "oracle/steps.hpp"
#include "psy/quiet_threshold.hpp"

#include <gtest/gtest.h>

namespace {

using namespace mp1a_test;
using namespace vela;

constexpr int frames = 6;
constexpr double untouched = 12345.0;

/// Two channels on the 16-bit scale with silence in front and behind.
struct input {
    std::vector<float> channel[2];
    int frame_samples;
    input(waveform kind, int layer) : frame_samples(layer == 1 ? 384 : 1152) {
        for (unsigned c = 0; c < 2; ++c) {
            channel[c].assign(640, 0.0F);
            for (const float sample : make_signal(kind, frames * frame_samples, 5 + c))
                channel[c].push_back(32768 * sample);
            channel[c].resize(channel[c].size() + 1152);
        }
    }
    const float *start(int f, int c) const { return channel[c].data() + 640 + f * frame_samples; }
};

struct results {
    subband_samples samples[frames];
    smr_table smr[frames] = {};
};

std::unique_ptr<results> run(level which, const input &in, int layer, int channels, int rate) {
    const auto model = std::make_unique<vela::psy_model>();
    auto out = std::make_unique<results>();
    std::fill_n(&out->samples[0][0][0][0][0], frames * 2304, untouched);
    model->init(which, layer, channels, rate);
    for (int f = 0; f < frames; ++f) {
        const float *const start[2] = {in.start(f, 0), in.start(f, 1)};
        analyze_frame(analysis_kernels_of(which), start, channels, layer == 1 ? 1 : 3, out->samples[f]);
        model->analyze(start, out->smr[f]);
    }
    return out;
}

class kernels : public testing::TestWithParam<std::tuple<int, int, int, waveform>> {};

TEST_P(kernels, equal_the_literal_steps_and_every_level_the_reference) {
    const auto [layer, channels, rate, kind] = GetParam();
    const input in(kind, layer);
    const auto reference = run(level::reference, in, layer, channels, rate);
    const double *const samples = &reference->samples[0][0][0][0][0];
    oracle::psy_model model(layer, rate);
    double expected[32];
    for (int i = 0; i < frames * 2 * 37 * 32; ++i) {
        const int f = i / 32 / 37 / 2, c = i / 32 / 37 % 2, step = i / 32 % 37, sb = i % 32;
        SCOPED_TRACE(i);
        if (step == 36) {
            if (sb == 0 && c < channels) model.analyze(in.start(f, c), c, expected);
            ASSERT_TRUE(std::isfinite(reference->smr[f][c][sb]));
            if (c < channels && kind != waveform::broken) {
                ASSERT_NEAR(reference->smr[f][c][sb], expected[sb], 1e-6);
            }
            continue;
        }
        const double got = samples[(72 * f + 36 * c + step) * 32 + sb];
        const bool written = c < channels && step < (layer == 1 ? 12 : 36);
        ASSERT_EQ(got == untouched, !written);
        if (!written || kind == waveform::broken) continue;
        if (sb == 0) oracle::analyze(in.start(f, c) + 32 * step + 31, expected);
        ASSERT_NEAR(got, expected[sb], kind == waveform::silence ? 0 : 1e-12);
    }
    for (const level which : levels()) {
        const auto got = run(which, in, layer, channels, rate);
        const double *const a = &got->smr[0][0][0], *const b = &reference->smr[0][0][0];
        EXPECT_TRUE(std::equal(a, a + frames * 64, b)) << "level " << static_cast<int>(which);
        for (int i = 0; i < frames * 2304; ++i) {
            const double x = samples[i], y = (&got->samples[0][0][0][0][0])[i];
            ASSERT_TRUE(std::isnan(x) ? std::isnan(y) : x == y && std::signbit(x) == std::signbit(y))
                << "level " << static_cast<int>(which) << ", value " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(all, kernels,
                         testing::Combine(testing::Values(1, 2), testing::Values(1, 2),
                                          testing::Values(32000, 44100, 48000),
                                          testing::ValuesIn(all_waveforms)));

TEST(quiet_threshold, follows_the_formula_on_its_grid_and_ends_where_nothing_is_audible) {
    for (const auto &[rate, last_rising, final, last] : {std::tuple{48000, 332, 428, 96324681728.0},
                                                         {44100, 368, 464, 124950298624.0},
                                                         {32000, 472, 480, 1935251712.0}}) {
        for (int line = 0; line < 513; ++line) {
            const int length = line < 48 ? 1 : line < 96 ? 2 : line < 192 ? 4 : 8;
            const int end = std::min(line / length * length + length, last_rising);
            const double f = end * (rate / 1024.0) / 1000;
            const double db = 3.64 * std::pow(f, -0.8) - 6.5 * std::exp(-0.6 * (f - 3.3) * (f - 3.3))
                              + 0.001 * std::pow(f, 4);
            const double energy = 15266.433184245481 * std::pow(10, std::round(db * 100) / 1000);
            const double expected = line >= final         ? 60776765194240.0
                                    : line >= last_rising ? last
                                                          : energy;
            EXPECT_NEAR(quiet_threshold(rate)[line] / expected, 1, line >= last_rising ? 0 : 2e-6)
                << rate << ", line " << line;
        }
    }
}

} // namespace
