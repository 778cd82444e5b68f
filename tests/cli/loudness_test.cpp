// Loudness by EBU R 128: the test signals of EBU Tech 3341 and 3342, made from their descriptions, and
// what libebur128 says of other sound when it hears all of it in one go.
#include "jobs/loudness_pass.hpp"
#include "loudness/loudness_meter.hpp"
#include "workbench.hpp"

#include <cmath>
#include <ebur128.h>
#include <numbers>

namespace velaenc_test {
namespace {

constexpr int rate = 48000;

/// A part of a signal: a sine of the same phase and level in both channels.
struct tone {
    double db, seconds;
    double hertz = 1000, phase = 0; ///< in degrees
};

std::vector<float> signal(const std::vector<tone> &tones, int times = 1) {
    std::vector<float> samples;
    for (; times > 0; --times)
        for (const auto &[db, seconds, hertz, phase] : tones)
            for (int i = 0, n = static_cast<int>(std::lround(seconds * rate)); i < n; ++i) {
                const double turns = hertz * i / rate + phase / 360;
                // A step overshoots.
                const double rise = phase == 0 ? 1 : std::min({1.0, i / 480.0, (n - i) / 480.0});
                const auto value = static_cast<float>(rise * std::pow(10, db / 20)
                                                      * std::sin(2 * std::numbers::pi * turns));
                samples.insert(samples.end(), 2, value);
            }
    return samples;
}

/// Heard in pieces of no particular size.
tools::loudness_figures figures_of(std::span<const float> samples, int channels = 2) {
    tools::programme_meter meter(channels, rate);
    for (std::size_t piece = 2; !samples.empty(); piece = piece * 7 % 30011 / 2 * 2 + 2) {
        const auto part = samples.first(std::min(piece, samples.size()));
        meter.add(part);
        samples = samples.subspan(part.size());
    }
    return meter.finish().figures();
}

constexpr double silence = -200;

TEST(loudness, is_that_of_tech_3341) {
    const struct {
        int number;
        std::vector<tone> tones;
        int times;
    } whole_programmes[] = {
        {4, {{-72, 10}, {-36, 10}, {-23, 60}, {-36, 10}, {-72, 10}}, 1},
        {5, {{-26, 20}, {-20, 20.1}, {-26, 20}}, 1},
        {9, {{-20, 1.34}, {-30, 1.66}}, 5},
        {12, {{-20, 0.18}, {-30, 0.22}}, 25},
    };
    for (const auto &[number, tones, times] : whole_programmes) {
        const auto heard = figures_of(signal(tones, times));
        const auto figure = number == 9    ? heard.short_term
                            : number == 12 ? heard.momentary
                                           : heard.integrated;
        EXPECT_NEAR(figure.value(), -23, 0.1) << number;
    }
    EXPECT_NEAR(figures_of(signal({{-33, 20}})).integrated.value(), -33, 0.1);
    for (int i = 0; i < 20; i += 7) { // 10 and 13: wherever the loud part begins
        EXPECT_NEAR(
            figures_of(signal({{silence, i * 0.15}, {-23, 3}, {silence, 1}})).short_term.value(), -23,
            0.1)
            << i;
        EXPECT_NEAR(
            figures_of(signal({{silence, i * 0.02}, {-23, 0.4}, {silence, 1}})).momentary.value(), -23,
            0.1)
            << i;
    }
    const double minus_6 = 20 * std::log10(0.5), plus_3 = 20 * std::log10(1.41);
    const tone peaks[] = {{minus_6, 1, rate / 4.0, 0},
                          {minus_6, 1, rate / 4.0, 45},
                          {minus_6, 1, rate / 6.0, 60},
                          {minus_6, 1, rate / 8.0, 67.5},
                          {plus_3, 1, rate / 4.0, 45}}; // 15 to 19
    for (const tone &each : peaks) {
        const double error = figures_of(signal({each})).true_peak.value() - each.db;
        EXPECT_TRUE(error >= -0.4 && error <= 0.2) << each.phase << ": " << error;
    }
}

TEST(loudness, has_the_range_of_tech_3342) {
    const struct {
        std::vector<double> levels;
        double range;
    } cases[] = {{{-20, -15}, 5}, {{-50, -35, -20, -35, -50}, 15}};
    for (const auto &[levels, range] : cases) {
        std::vector<tone> tones;
        for (const double db : levels)
            tones.push_back({db, 20});
        EXPECT_NEAR(figures_of(signal(tones)).range, range, 1);
    }
}

/// Noise that swells and falls, with clicks, so that most of its values are far from the loudest.
std::vector<float> swelling_noise(std::size_t instants, std::size_t channels) {
    std::vector<float> samples;
    const auto source = noise(instants * channels);
    for (std::size_t i = 0; i < source.size(); ++i) {
        const double t = static_cast<double>(i / channels) / rate;
        const double level = 0.4 * std::abs(std::sin(t / 3)) * (i % 977 == 0 ? 1.9 : 0.3);
        samples.push_back(static_cast<float>(source[i] / 32768.0 * level));
    }
    return samples;
}

TEST(loudness, of_parts_is_that_of_the_whole_in_one_go) {
    for (const std::size_t channels : {1u, 2u}) {
        const std::size_t instants = 70 * rate + 12345;
        const auto samples = swelling_noise(instants, channels);
        const auto heard = figures_of(samples, static_cast<int>(channels));
        ebur128_state *whole = ebur128_init(static_cast<unsigned>(channels), rate,
                                            EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK);
        ebur128_add_frames_float(whole, samples.data(), instants);
        double integrated = 0, range = 0, largest = 0;
        ebur128_loudness_global(whole, &integrated);
        ebur128_loudness_range(whole, &range);
        for (unsigned c = 0; c < channels; ++c) {
            double peak = 0;
            ebur128_true_peak(whole, c, &peak);
            largest = std::max(largest, peak);
        }
        ebur128_destroy(&whole);
        EXPECT_NEAR(heard.integrated.value(), integrated, 0.001);
        EXPECT_NEAR(heard.range, range, 0.2); // it looks once a second
        EXPECT_DOUBLE_EQ(heard.true_peak.value(), 20 * std::log10(largest));
    }
    EXPECT_FALSE(figures_of(std::vector<float>(rate)).integrated);
    EXPECT_FALSE(figures_of(std::vector<float>(rate)).true_peak);
}

} // namespace
} // namespace velaenc_test
