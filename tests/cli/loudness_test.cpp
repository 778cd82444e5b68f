// Loudness by EBU R 128: the test signals of EBU Tech 3341 and 3342, made from their descriptions, and
// what libebur128 says of other sound when it hears all of it in one go.
#include "input/open_pcm.hpp"
#include "jobs/loudness_pass.hpp"
#include "loudness/loudness_meter.hpp"
#include "workbench.hpp"

#include <bit>
#include <cmath>
#include <cstring>
#include <ebur128.h>
#include <nlohmann/json.hpp>
#include <numbers>

namespace velaenc_test {
namespace {

constexpr int sound_rate = 48000;

/// A part of a signal: a sine of the same phase and level in both channels.
struct tone {
    double db, seconds;
    double hertz = 1000, phase = 0; ///< in degrees
};

std::vector<float> signal(const std::vector<tone> &tones, int times = 1) {
    std::vector<float> samples;
    for (; times > 0; --times)
        for (const auto &[db, seconds, hertz, phase] : tones)
            for (int i = 0, n = static_cast<int>(std::lround(seconds * sound_rate)); i < n; ++i) {
                const double turns = hertz * i / sound_rate + phase / 360;
                // A step overshoots.
                const double rise = phase == 0 ? 1 : std::min({1.0, i / 480.0, (n - i) / 480.0});
                const auto value = static_cast<float>(rise * std::pow(10, db / 20)
                                                      * std::sin(2 * std::numbers::pi * turns));
                samples.insert(samples.end(), 2, value);
            }
    return samples;
}

/// Heard in pieces of no particular size.
tools::loudness_figures figures_of(std::span<const float> samples, int channels = 2,
                                   int rate = sound_rate) {
    tools::programme_meter meter(channels, rate);
    for (std::size_t piece = 2; !samples.empty(); piece = piece * 7 % 30011 / 2 * 2 + 2) {
        const auto part = samples.first(std::min(piece, samples.size()));
        meter.add(part);
        samples = samples.subspan(part.size());
    }
    return meter.finish().figures();
}

constexpr double no_sound = -200;

TEST(loudness, is_that_of_tech_3341) {
    const struct {
        int number;
        std::vector<tone> tones;
        int times;
    } whole_programmes[] = {
        {1, {{-23, 20}}, 1},
        {3, {{-36, 10}, {-23, 60}, {-36, 10}}, 1},
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
            figures_of(signal({{no_sound, i * 0.15}, {-23, 3}, {no_sound, 1}})).short_term.value(), -23,
            0.1)
            << i;
        EXPECT_NEAR(
            figures_of(signal({{no_sound, i * 0.02}, {-23, 0.4}, {no_sound, 1}})).momentary.value(),
            -23, 0.1)
            << i;
    }
    const double minus_6 = 20 * std::log10(0.5), plus_3 = 20 * std::log10(1.41);
    const tone peaks[] = {{minus_6, 1, sound_rate / 4.0, 0},
                          {minus_6, 1, sound_rate / 4.0, 45},
                          {minus_6, 1, sound_rate / 6.0, 60},
                          {minus_6, 1, sound_rate / 8.0, 67.5},
                          {plus_3, 1, sound_rate / 4.0, 45}}; // 15 to 19
    for (const tone &each : peaks) {
        const double error = figures_of(signal({each})).true_peak.value() - each.db;
        EXPECT_TRUE(error >= -0.4 && error <= 0.2) << each.phase << ": " << error;
    }
}

TEST(loudness, has_the_range_of_tech_3342) {
    const std::pair<std::vector<tone>, double> cases[] = {
        {{{-20, 20}, {-30, 20}}, 10},
        {{{-20, 20}, {-15, 20}}, 5},
        {{{-40, 20}, {-20, 20}}, 20},
        {{{-50, 20}, {-35, 20}, {-20, 20}, {-35, 20}, {-50, 20}}, 15}};
    for (const auto &[tones, range] : cases)
        EXPECT_NEAR(figures_of(signal(tones)).range, range, 1);
}

// Four samples whose values between them reach further than any of them.
TEST(loudness, true_peak_is_found_across_a_minute_and_with_the_last_samples) {
    constexpr std::size_t minute = 60 * sound_rate;
    const auto peak_of = [](std::size_t end) {
        std::vector<float> sound(minute + 100);
        std::ranges::copy(std::array{-0.6F, 0.6F, 0.6F, -0.6F},
                          sound.begin() + static_cast<std::ptrdiff_t>(end - 4));
        return figures_of(sound, 1).true_peak.value();
    };
    // A sinc: 0.6 * 2 * (sin(pi / 2) / (pi / 2) + sin(pi / 2) / (3 pi / 2)) = 1.02, less what the window takes.
    EXPECT_NEAR(peak_of(1000), 20 * std::log10(1.02), 0.5);
    for (const std::size_t end :
         {minute - 1, minute, minute + 1, minute + 2, minute + 3, minute + 4, minute + 100})
        EXPECT_EQ(peak_of(end), peak_of(1000)) << end;
    // A tone goes on behind the minute's end: where it seemed to stop there it would overshoot.
    EXPECT_NEAR(figures_of(signal({{-20, 61, 1000, 90}})).true_peak.value(), -20, 0.05);
}

class loudness_test : public workbench {
  protected:
    void put_sound(const std::string &name, const std::vector<float> &values, int channels = 2,
                   int rate = sound_rate) const {
        std::string bytes;
        for (const float value : values)
            bytes += little_endian(std::bit_cast<std::uint32_t>(value), 4);
        put(name, wav(bytes, channels, rate, 4));
    }

    /// What another meter says of a file: integrated loudness in LUFS, or the true peak in dBTP.
    double measured(const std::string &name, const std::string &figure) const {
        const std::string text =
            run("ffmpeg -nostats -i " + name + " -af ebur128=peak=true -f null - 2>&1").out;
        const auto at = text.rfind(figure + ":");
        return at == text.npos ? NAN : std::stod(text.substr(at + figure.size() + 1));
    }
};

TEST_F(loudness_test, is_reached_by_one_gain_that_keeps_the_true_peak) {
    put_sound("in.wav", signal({{-30, 12}}));
    expect_failure("velaenc < in.wav - out.mp2 --loudness -23", 1, "reads IN twice");
    expect_failure("velaenc in.wav out.mp2 --loudness 3", 1, "-60 to 0");
    expect_failure("velaenc in.wav out.mp2 --true-peak -3", 1, "--loudness");
    put("far.wav", wav(std::string(200000, '\x7E'), 1, 48000, 4)); // 8e37
    expect_failure("velaenc far.wav out.mp2 --loudness -23", 2, "cannot be measured");
    run("velaenc in.wav --loudness -20", 0, "after a gain of +10.0 dB");
    EXPECT_NEAR(measured("in.mp2", "I"), -20, 0.15);
    // A sine as loud as -10 LUFS has peaks of -10 dBTP.
    run("velaenc in.wav --loudness -5 --true-peak -12", 0,
        "--true-peak -12 keeps it below the -5 LUFS");
    EXPECT_NEAR(measured("in.mp2", "Peak"), -12, 0.3);
    run("velaenc in.wav --measure", 0, "loudness -30.0 LUFS");
    run("cat in.wav | velaenc - piped.mp2 --measure -j 3", 0, "loudness -30.0 LUFS");
    EXPECT_TRUE(get("piped.mp2") == get("in.mp2"));
    put("silence.wav", wav(std::string(96000, 0), 2, sound_rate));
    run("velaenc silence.wav --loudness -23", 0, "its level stays");
    // After mixing down and resampling: three channels of which one is heard in both.
    std::vector<float> surround;
    for (const float value : signal({{-30, 4}}))
        surround.insert(surround.end(), {0, 0, value});
    put_sound("centre.wav", surround, 3, 44100);
    run("velaenc centre.wav centre.mp2 --to-rate 48000 --loudness -23");
    EXPECT_NEAR(measured("centre.mp2", "I"), -23, 0.2);
}

TEST_F(loudness_test, stands_in_the_report_and_in_the_broadcast_extension) {
    put_sound("in.wav", signal({{-30, 12}}));
    run("velaenc in.wav out.wav --loudness -23 && cat in.wav | velaenc - end.wav --measure");
    // A sine has one loudness, and its peak is that; both channels together are 3 dB louder.
    for (const auto &[name, level] : {std::pair{"out.wav", -2300}, {"end.wav", -3000}}) {
        const std::string bext = get(name).substr(get(name).find("bext") + 8);
        EXPECT_EQ(bext[346], 2) << name;
        for (std::size_t i = 0; i < 5; ++i) {
            std::int16_t value = 0;
            std::memcpy(&value, &bext[412 + 2 * i], sizeof value);
            EXPECT_NEAR(value, i == 1 ? 0 : level, 8) << name << i;
        }
    }
    run("velaenc in.wav --output-dir o --loudness -23 --report r");
    const auto line = nlohmann::json::parse(get("r"));
    for (const char *field : {"integrated_lufs", "momentary_lufs", "short_term_lufs", "true_peak_dbtp"})
        EXPECT_NEAR(line["loudness"][field].get<double>(), -23, 0.1) << field;
    EXPECT_NEAR(line["loudness"]["gain_db"].get<double>(), 7, 0.1);
    EXPECT_FALSE(line["loudness"]["limited_by_true_peak"].get<bool>());
    EXPECT_TRUE(encoded("in.wav --gain " + line["loudness"]["gain_db"].dump()) == get("o/in.mp2"));
}

/// Noise that swells and falls, with clicks, so that most of its values are far from the loudest.
std::vector<float> swelling_noise(std::size_t instants, std::size_t channels, int rate = sound_rate) {
    std::vector<float> samples;
    const auto source = noise(instants * channels);
    for (std::size_t i = 0; i < source.size(); ++i) {
        const double t = static_cast<double>(i / channels) / rate;
        const double level = 0.4 * std::abs(std::sin(t / 3)) * (i % 977 == 0 ? 1.9 : 0.3);
        samples.push_back(static_cast<float>(source[i] / 32768.0 * level));
    }
    return samples;
}

TEST(loudness, of_parts_is_what_libebur128_says_of_the_whole_in_one_go) {
    const struct {
        std::size_t channels;
        int rate;
        double tolerance; // ours has the response of 48 kHz, its is up to 0.02 dB higher at other rates
    } cases[] = {{1, 48000, 0.001}, {2, 48000, 0.001}, {2, 44100, 0.005}, {1, 32000, 0.025}};
    for (const auto &[channels, rate, tolerance] : cases) {
        const std::size_t instants = 70 * static_cast<std::size_t>(rate) + 12345;
        const auto samples = swelling_noise(instants, channels, rate);
        const auto heard = figures_of(samples, static_cast<int>(channels), rate);
        ebur128_state *whole =
            ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(rate),
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
        EXPECT_NEAR(heard.integrated.value(), integrated, tolerance) << rate;
        EXPECT_NEAR(heard.range, range, 0.25); // it looks once a second
        EXPECT_NEAR(heard.true_peak.value(), 20 * std::log10(largest), 1e-4) << rate;
    }
    EXPECT_FALSE(figures_of(std::vector<float>(sound_rate)).integrated);
    EXPECT_FALSE(figures_of(std::vector<float>(sound_rate)).true_peak);
    auto broken = signal({{-23, 20}});
    broken[99999] = NAN;
    broken[199999] = INFINITY;
    EXPECT_NEAR(figures_of(broken).integrated.value(), -23, 0.1);
}

TEST_F(loudness_test, of_parts_heard_side_by_side_is_the_same_to_the_last_bit) {
    struct : tools::progress_listener {
        void update(std::uint64_t samples) override { last = samples; }
        std::uint64_t last = 0;
    } shown;
    auto sound = swelling_noise(125 * sound_rate, 2);
    for (int i = -4; i < 0; ++i) // louder than all else, and only silence behind it
        sound.end()[2 * i] = i == -4 || i == -1 ? -0.9F : 0.9F;
    put_sound("in.wav", sound);
    run("ffmpeg -v error -i in.wav -c:a pcm_f32le in.w64"); // which several readers can open at once
    const auto heard = [&](int jobs) {
        const auto source = tools::open_pcm(tools::open_input(path("in.w64")), {});
        EXPECT_NE(source->another(), nullptr);
        auto record = tools::hear_source(*source, jobs, shown);
        EXPECT_EQ(shown.last, 125u * sound_rate);
        return record;
    };
    const auto alone = heard(1), together = heard(3);
    EXPECT_EQ(alone.energy, together.energy);
    EXPECT_EQ(alone.peak, together.peak);
    EXPECT_GT(alone.peak, 1.4);
    EXPECT_EQ(alone.energy.size(), 12500u);
}

} // namespace
} // namespace velaenc_test
