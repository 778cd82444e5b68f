// What happens to the sound before it is encoded: parts, delay, channels, rates, levels.
#include "input/resampler.hpp"
#include "memory_source.hpp"
#include "workbench.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <sndfile.h>

namespace velaenc_test {
namespace {

using samples = std::vector<std::int16_t>;

/// One channel of a function of time, read in blocks of a given length, at another rate.
std::vector<float> resampled(int to, int from, std::size_t length, std::size_t block,
                             double (*wave)(double second)) {
    std::vector<float> sound;
    for (std::size_t i = 0; i < length; ++i)
        sound.push_back(static_cast<float>(wave(static_cast<double>(i) / from)));
    const mp1a_test::stream how{.mode = MPEG_A_MODE_MONO, .rate = from, .width = 4};
    const auto bytes = mp1a_test::pcm_bytes(sound, how.width);
    const auto source = memory_source(how, bytes, block).that_seeks(memory_source::seeks::exactly);
    tools::resampler filter(std::make_unique<memory_source>(source), to);
    sound.clear();
    for (auto out = filter.next_block(); !out.empty(); out = filter.next_block()) {
        const auto *const first = reinterpret_cast<const float *>(out.data());
        sound.insert(sound.end(), first, first + out.size() / sizeof(float));
    }
    return sound;
}

/// From 20 Hz to 19 kHz in seven seconds, faded in and out so that nothing lies above.
double sweep(double second) {
    constexpr double length = 7, from = 20, to = 19000, fade = 0.5, pi = std::numbers::pi;
    const double growth = std::log(to / from), edge = std::min({second, length - second, fade}) / fade;
    const double phase = 2 * pi * from * length / growth * std::expm1(growth * second / length);
    return 0.5 * std::pow(std::sin(pi / 2 * edge), 4) * std::sin(phase);
}

double highest(double second) {
    return std::sin(2 * std::numbers::pi * 20000 * second);
}

class sound_test : public workbench {
  protected:
    static samples part(const samples &stereo, std::size_t from, std::size_t to,
                        std::size_t silence = 0) {
        samples result(stereo.begin() + static_cast<std::ptrdiff_t>(2 * from),
                       stereo.begin() + static_cast<std::ptrdiff_t>(2 * to));
        result.insert(result.end(), 2 * silence, 0);
        return result;
    }

    std::string stream_of(const samples &stereo, const std::string &arguments = "") const {
        put("expected.wav", wav(pcm(stereo), 2, 48000));
        return encoded("expected.wav " + arguments);
    }

    /// What another program decodes, two channels.
    std::vector<float> decoded(const std::string &arguments) const {
        put("stream.mp2", encoded(arguments));
        return heard("stream.mp2");
    }
};

TEST_F(sound_test, a_part_is_cut_to_the_sample_from_files_that_seek_and_from_those_that_do_not) {
    const auto sound = noise(2 * 400000);
    put("in.wav", wav(pcm(sound), 2, 48000));
    write("in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, sound, 2);
    const struct {
        std::string arguments;
        std::size_t from, to;
    } cases[] = {
        {"--start 1.5 --duration 0:02", 72000, 168000},
        {"--start 0:00:08.0 --duration 1:00:00", 384000, 400000},
        {"--start .00002", 1, 400000}, // 0.96 samples
        {"--duration 0.000031", 0, 1}, // 1.488
        {"--start 8.333312", 399999, 400000},
    };
    for (const auto &[arguments, from, to] : cases) {
        const auto expected = stream_of(part(sound, from, to));
        for (const std::string jobs : {" -j 1", " -j 3"}) {
            EXPECT_TRUE(encoded("in.wav " + arguments + jobs) == expected) << arguments << jobs;
            EXPECT_TRUE(encoded("in.flac " + arguments + jobs) == expected) << arguments << jobs;
            EXPECT_TRUE(shell("cat in.wav | velaenc - - " + arguments + jobs).out == expected);
        }
    }
    expect_failure("velaenc in.flac out.mp2 --start 1:00:09", 2, "ends before --start 1:00:09.000");
    expect_failure("cat in.wav | velaenc - out.mp2 --start 0:09", 2, "ends before --start 0:09.000");
    for (const std::string time : {"1:60", "1:2:3:4", "-1", "5.", "1.0000000001", "''"})
        expect_failure("velaenc in.wav out.mp2 --start " + time, 1, "h:mm:ss.fff");
}

TEST_F(sound_test, align_drops_the_decoders_delay_and_both_options_let_the_tail_come_out) {
    const auto sound = noise(2 * 11520);
    put("in.wav", wav(pcm(sound), 2, 48000));
    for (const auto &[layer, delay] : {std::pair{"--layer 2", 481u}, {"--layer 1", 545u}}) {
        EXPECT_TRUE(encoded(std::string("in.wav --align ") + layer)
                    == stream_of(part(sound, delay, 11520, delay), layer));
        EXPECT_TRUE(encoded(std::string("in.wav --flush-tail ") + layer)
                    == stream_of(part(sound, 0, 11520, delay), layer));
    }
    run("velaenc in.wav --align -", 0,
        "note: dropping 481 samples at the start for the decoder's delay and appending 481 ");
    expect_failure("velaenc in.wav out.mp2 --duration 0.01 --align", 2, "shorter than the 481 samples");
}

TEST_F(sound_test, every_layout_goes_where_its_speakers_are_and_never_clips) {
    constexpr double c = std::numbers::sqrt2 / 2;
    struct speaker {
        double left, right;
        int number; ///< libsndfile's
    };
    const std::map<char, speaker> known{{'L', {1, 0, SF_CHANNEL_MAP_LEFT}},
                                        {'R', {0, 1, SF_CHANNEL_MAP_RIGHT}},
                                        {'C', {c, c, SF_CHANNEL_MAP_CENTER}},
                                        {'.', {0, 0, SF_CHANNEL_MAP_LFE}},
                                        {'b', {0.5, 0.5, SF_CHANNEL_MAP_REAR_CENTER}},
                                        {'l', {c, 0, SF_CHANNEL_MAP_REAR_LEFT}},
                                        {'r', {0, c, SF_CHANNEL_MAP_REAR_RIGHT}},
                                        {'s', {c, 0, SF_CHANNEL_MAP_SIDE_LEFT}},
                                        {'t', {0, c, SF_CHANNEL_MAP_SIDE_RIGHT}},
                                        {'m', {1, 0, SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER}},
                                        {'n', {0, 1, SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER}}};
    constexpr int masked = SF_FORMAT_WAVEX | SF_FORMAT_PCM_16;
    const struct {
        std::string name, layout;
        int format;
    } cases[] = {
        {"6.wav", "LRC.lr", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {"5.flac", "LRClr", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"6.flac", "LRC.lr", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"4.wav", "LRlr", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {"8.flac", "LRC.lrst", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"4.ogg", "LRlr", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {"6.ogg", "LCRlr.", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {"16.wav", "LRCbst", masked},
        {"32.wav", "LRCbst", SF_FORMAT_WAVEX | SF_FORMAT_PCM_32},
        {"wide.wav", "LRC.lrmn", masked},
    };
    for (const auto &[name, layout, format] : cases) {
        std::vector<int> speakers;
        double sums[2] = {0, 0};
        for (const char letter : layout) {
            const speaker &here = known.at(letter);
            if ((format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAVEX) speakers.push_back(here.number);
            sums[0] += here.left, sums[1] += here.right;
        }
        const double loudest = std::max(sums[0], sums[1]);
        // 2400 samples a speaker, one after the other; then all of them at full scale.
        const std::size_t channels = layout.size();
        samples sound;
        for (std::size_t t = 0; t < (channels + 1) * 2400; ++t)
            for (std::size_t k = 0; k < channels; ++k) {
                const double wave = std::sin(2 * std::numbers::pi * static_cast<double>(t) / 48);
                const bool on = t / 2400 == k || t / 2400 == channels;
                sound.push_back(static_cast<std::int16_t>(on ? 32000 * wave : 0));
            }
        write(name, format, sound, static_cast<int>(channels), speakers);
        const auto out = decoded(name + " --align --bitrate 384 --duration 9");
        ASSERT_GE(out.size(), 2 * (channels + 1) * 2400) << name;
        for (std::size_t k = 0; k <= channels; ++k)
            for (const std::size_t side : {0u, 1u}) {
                double energy = 0;
                for (std::size_t t = k * 2400 + 960; t < k * 2400 + 1440; ++t)
                    energy += out[2 * t + side] * out[2 * t + side] / 480.0;
                const double gain = k == channels ? loudest
                                    : side == 0   ? known.at(layout[k]).left
                                                  : known.at(layout[k]).right;
                const double peak = std::sqrt(2 * energy) * 32768 / 32000;
                EXPECT_NEAR(peak, gain / loudest, 0.03) << name << ' ' << k << ' ' << side;
            }
    }
    const samples few(2 * 1152);
    write("sides.wav", masked, few, 2, {SF_CHANNEL_MAP_SIDE_LEFT, SF_CHANNEL_MAP_SIDE_RIGHT});
    run("velaenc sides.wav -", 0, "the two channels (SL SR) become left and right");
    write("above.wav", masked, few, 3,
          {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_TOP_FRONT_LEFT});
    expect_failure("velaenc above.wav out.mp2", 2, "3 channels (FL FR TFL)");
}

TEST_F(sound_test, another_rate_loses_no_sample_and_adds_nothing) {
    std::vector<int> rates{1000, 4000, 8000, 11025, 22050, 44100, 48000, 88200, 96000, 176400, 192000};
    for (const unsigned odd : {7919u, 104729u, 611953u})
        for (unsigned i = 1; i <= 8; ++i)
            rates.push_back(static_cast<int>(1000 + odd * i % 191001));
    constexpr std::size_t blocks[] = {1, 37, 1000, 4096, 16384};
    for (std::size_t i = 0; i < rates.size(); ++i)
        for (const int to : {32000, 44100, 48000}) {
            const std::size_t block = blocks[(i + static_cast<std::size_t>(to)) % 5];
            const std::uint64_t in = block == 1 ? 900 : 9000 + 7 * i, from = rates[i];
            const auto out = resampled(to, rates[i], in, block, [](double) { return 0.0; });
            EXPECT_EQ(out.size(), (2 * in * to + from) / (2 * from)) << from << " Hz to " << to;
        }
    // Three pieces, the last of them short.
    for (const auto &[from, to] :
         {std::pair{44100, 48000}, {48000, 44100}, {44101, 48000}, {96000, 44100}}) {
        const auto swept = resampled(to, from, 7ul * from, 5000, sweep),
                   tone = resampled(to, from, 7ul * from, 5000, highest);
        ASSERT_EQ(swept.size(), 7ul * to);
        double residue = 0, power = 0, gain = 0;
        for (std::size_t t = 0; t < swept.size(); ++t) {
            const double second = static_cast<double>(t) / to, wanted = sweep(second);
            residue += std::pow(swept[t] - wanted, 2);
            power += wanted * wanted;
            if (second > 1 && second < 6) gain += 2 * tone[t] * highest(second) / (5.0 * to);
        }
        EXPECT_LT(10 * std::log10(residue / power), -110) << from << " Hz to " << to;
        EXPECT_NEAR(20 * std::log10(gain), 0, 0.05) << from << " Hz to " << to;
    }
}

TEST_F(sound_test, a_rate_that_the_stream_cannot_have_becomes_the_next_one_or_the_presets) {
    const struct {
        int rate;
        const char *arguments;
        int expected;
    } cases[] = {
        {8000, "", 32000},
        {22050, "", 32000},
        {37800, "", 44100},
        {48000, "", 48000},
        {55125, "", 44100},
        {96000, "", 48000},
        {48000, "--preset vcd", 44100},
        {44100, "--preset dvd", 48000},
        {32000, "--to-rate 48000", 48000},
    };
    for (const auto &[rate, arguments, expected] : cases) {
        put("in.wav", wav(pcm(noise(2 * static_cast<std::size_t>(rate))), 2, rate));
        const auto stream = encoded(std::string("in.wav ") + arguments);
        EXPECT_EQ(frames_of(stream).at(0).rate, expected) << rate << arguments;
        EXPECT_TRUE(encoded(std::string("in.wav -j 1 ") + arguments) == stream) << rate << arguments;
    }
}

TEST_F(sound_test, gain_and_swap_are_exact_and_what_lies_beyond_full_scale_is_counted) {
    const auto sound = noise(2 * 300000);
    samples swapped;
    std::size_t beyond = 0;
    double loudest = 0;
    for (std::size_t i = 0; i < sound.size(); ++i) {
        swapped.push_back(sound[i ^ 1]);
        beyond += std::abs(sound[i] / 32768.0 * std::pow(10, 12 / 20.0)) > 1;
        loudest = std::max(loudest, std::abs(sound[i] / 32768.0));
    }
    put("in.wav", wav(pcm(sound), 2, 48000));
    EXPECT_TRUE(encoded("in.wav --swap-channels") == stream_of(swapped));
    EXPECT_TRUE(encoded("expected.wav --swap-channels --gain 0") == encoded("in.wav"));
    run("velaenc in.wav --swap-channels -", 0, "note: left and right are swapped");
    run("velaenc in.wav -m mono m.mp2; ffmpeg -v error -i m.mp2 m.wav; velaenc m.wav --swap-channels -",
        0, "note: one channel: nothing to swap\n");
    // To the tenth of a dB that is enough.
    const int tenths = 120 + static_cast<int>(std::ceil(200 * std::log10(loudest)));
    const std::string by =
        "by up to +" + std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10);
    for (const std::string arguments : {"-j 1", "-j 3", "--engine"}) {
        const auto loud = run("velaenc in.wav --gain +12 out.mp2 " + arguments, 0,
                              ": " + std::to_string(beyond) + " samples lie beyond");
        for (const std::string &words : {by + " dB", std::string("note: gain +12.0 dB\n")})
            EXPECT_NE(loud.err.find(words), std::string::npos) << words << loud.err;
        const auto quiet = run("velaenc in.wav --gain 5.9 out.mp2 " + arguments);
        EXPECT_EQ(quiet.err.find("beyond"), std::string::npos) << quiet.err;
    }
}

TEST_F(sound_test, factors_of_ones_own_mix_down_as_they_are) {
    auto sound = noise(6 * 20000);
    std::vector<std::int16_t> mixed;
    for (auto &each : sound)
        each /= 16;
    for (std::size_t i = 0; i < sound.size(); i += 6)
        for (const std::size_t side : {0u, 1u})
            mixed.push_back(static_cast<std::int16_t>(sound[i + side] + 2 * sound[i + 2] + sound[i + 3]
                                                      + 3 * sound[i + 4 + side]));
    put("in.wav", wav(pcm(sound), 6, 48000));
    put("mixed.wav", wav(pcm(mixed, 4), 2, 48000, 4));
    const std::string own = "velaenc --downmix FC=2,lfe=1,BL=3,br=3 in.wav - ";
    EXPECT_TRUE(
        run(own, 0,
            "down to stereo by --downmix, the loudest channel at +9.5 dB, all at once at +16.9 dB, "
            "which may clip")
            .out
        == encoded("mixed.wav"));
    for (const std::string text : {"FC", "FC=x", "XX=1", "FC=-1"})
        run("velaenc in.wav x --downmix " + text, 1, "--downmix");
}

} // namespace
} // namespace velaenc_test
