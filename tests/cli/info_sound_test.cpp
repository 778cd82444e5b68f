// What velainfo hears: the sound itself, and the stream beside its source.
#include "info_workbench.hpp"
#include "velainfo/comparison.hpp"

#include <cmath>
#include <regex>

namespace velaenc_test {
namespace {

/// Samples of both channels, each changed.
std::vector<std::int16_t> changed(const std::vector<std::int16_t> &sound, double left, double right,
                                  bool swap = false) {
    std::vector<std::int16_t> out(sound.size());
    for (std::size_t i = 0; i < sound.size(); ++i)
        out[i] = static_cast<std::int16_t>((i % 2 == 0 ? left : right) * sound[swap ? i ^ 1 : i]);
    return out;
}

TEST_F(info_test, the_text_says_what_json_says) {
    auto sound = noise(2 * 4 * 48000);
    for (std::size_t i = 0; i < sound.size(); ++i)
        sound[i] =
            static_cast<std::int16_t>(i / 2 / 9600 - 6 < 7 ? 0 : sound[i] / (i % 2 == 0 ? 2 : 8));
    put("a.wav", wav(pcm(sound), 2, 48000));
    sound.resize(2 * 168000);
    put("half.wav", wav(pcm(changed(sound, -0.5, -0.5, true)), 2, 48000));
    const std::string joint = encoded("--mode joint --crc --bitrate 128 a.wav"),
                      stereo = encoded("--crc --copyright 1 --emphasis 50/15 --bitrate 256 a.wav");
    std::string x = joint.substr(0, 20 * 384) + stereo.substr(20 * 768, 100 * 768)
                    + stereo.substr(123 * 768)
                    + encoded("--mode mono --bitrate 64 --duration 0.1 a.wav") + stereo.substr(0, 500);
    x[10 * 384 + 4] ^= 1;
    put("x.mp2", x);
    const std::string arguments =
        "--sound --source half.wav --expect silence=0.5s,kbps=128,rate=44100 x.mp2";
    auto said = json_of(arguments, 3);
    for (const char *shares : {"bits", "scfsi"}) {
        double all = 0;
        for (const double part : said[shares])
            all += part;
        for (auto &part : said[shares])
            part = 100 * part.get<double>() / all;
    }
    EXPECT_EQ(run("velainfo " + arguments, 3).out, filled_in(get(VELAINFO_REPORT), said));
    const std::string list = run("velainfo --frames x.mp2", 3).out;
    EXPECT_TRUE(std::regex_search(
                    list, std::regex("\n10 3840 384 0.240000 128 0 [01] \\d+ wrong 32 16 .* CRC\n"))
                && std::regex_search(list, std::regex("\n168 .* 192 4.032000 64 0 3 27 - 32 0 .* -\n")))
        << list;
}

TEST_F(info_test, silence_of_one_channel_has_its_page) {
    // By hand: 144 * 64 / 32 bytes a frame, 88 bits for what Table 3-B.2a allocates, 481 samples of delay.
    std::string stream;
    for (int i = 0; i < 56; ++i)
        stream += "\xFF\xFD\x48\xC0" + std::string(284, '\0');
    put("silent.wav", wav(stream, 1, 32000).replace(20, 1, "\x50"));
    std::string zeros;
    for (int sb = 0; sb < 27; ++sb)
        zeros += (sb == 16 ? "\n" + std::string(16, ' ') : "") + "   0.0";
    const std::string text = run("velainfo --sound silent.wav").out;
    EXPECT_TRUE(text.ends_with(
        "  bits          header 1.4 %, allocation 3.8 %, unused 94.8 %\n"
        "  scale factors nothing is allocated\n"
        "  allocation    bits a sample on average, by subband\n                "
        + zeros
        + "\n  loudness      none, range 0.0 LU, momentary up to none, short-term up to none\n"
          "  peak          true peak none, 0 samples clipped\n"
          "  level         dead: never above -60 dB\n"
          "  silence       2.0 s at most\n                2.0 s from 0:00.000\n"
          "  damage        none\n"))
        << text;
}

TEST_F(info_test, the_sound_is_measured_as_ffmpeg_measures_it) {
    auto sound = noise(2 * 48000 * 8);
    for (std::size_t i = 0; i < sound.size(); ++i) {
        const bool pause = i / 96000 == 3 || i / 96000 == 4; // two seconds
        sound[i] = static_cast<std::int16_t>(pause ? 0 : sound[i] * (i < 48000 * 6 ? 0.2 : 0.4));
        if (i % 4 == 1) sound[i] = sound[i - 1];
    }
    put("a.wav", wav(pcm(sound), 2, 48000));
    put("dead.wav", wav(pcm(changed(sound, 0, 1)), 2, 48000));
    run("for n in a dead; do velaenc --quiet --bitrate 256 $n.wav $n.mp2; done");
    run("ffmpeg -v error -i a.wav -ar 22050 -b:a 128k low.mp2");
    for (const std::string name :
         {"a.mp2", "low.mp2"}) { // the second one's rate is no multiple of 100 Hz
        const auto said = json_of("--sound " + name)["measured"];
        std::string judged =
            run("ffmpeg -nostats -i " + name + " -af ebur128=peak=true -f null - 2>&1").out;
        judged.erase(0, judged.rfind("Summary:"));
        for (const auto &[field, label, room] :
             {std::tuple{"loudness", "I:", 0.1}, {"range", "LRA:", 0.2}, {"true_peak", "Peak:", 0.3}})
            EXPECT_NEAR(said[field],
                        std::stod(judged.substr(judged.find(label) + std::string(label).size())), room)
                << name << field;
    }
    const auto said = json_of("--sound a.mp2")["measured"];
    const auto samples = heard("a.mp2");
    double product = 0, energy[2] = {};
    for (std::size_t i = 0; i < samples.size(); i += 2) {
        product += samples[i] * samples[i + 1];
        energy[0] += samples[i] * samples[i];
        energy[1] += samples[i + 1] * samples[i + 1];
    }
    EXPECT_NEAR(said["correlation"], product / std::sqrt(energy[0] * energy[1]), 1e-3);
    EXPECT_NEAR(said["rms"][1], 10 * std::log10(2 * energy[1] / static_cast<double>(samples.size())),
                0.01);
    ASSERT_EQ(said["silence"].size(), 1u);
    EXPECT_NEAR(said["silence"][0]["begin"], 3, 0.03);
    EXPECT_NEAR(said["silence"][0]["seconds"], 2, 0.05);
    EXPECT_EQ(json_of("--sound dead.mp2")["measured"]["dead"], (nlohmann::json{true, false}));
    const std::string policy = "--expect silence=1s,dead-channels=0,loudness=-23+-30,true-peak=..0 ";
    EXPECT_EQ(json_of(policy + "dead.mp2", 7)["broken"].size(), 2u);
}

TEST_F(info_test, a_source_that_differs_by_more_than_the_coding_is_named_and_compared_all_the_same) {
    constexpr int rate = 48000;
    auto sound = noise(2 * 4 * rate);
    // Like music it has more bass than treble, and gets louder: what is loud elsewhere must not attract.
    for (std::size_t i = 2; i < sound.size(); ++i)
        sound[i] = static_cast<std::int16_t>(0.95 * sound[i - 2] + 0.05 * sound[i]);
    for (std::size_t i = 0; i < sound.size(); ++i)
        sound[i] = static_cast<std::int16_t>(sound[i] * (i < sound.size() / 2 ? 0.3 : 3));
    std::vector<std::int16_t> tone(sound.size());
    for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] = static_cast<std::int16_t>(9000 * std::sin(0.0575958653 * static_cast<double>(i / 2)));
    const auto from = [&](double seconds) {
        return sound.begin() + 2 * static_cast<long>(seconds * rate);
    };
    const auto file = [&](const std::string &name, const std::vector<std::int16_t> &samples,
                          int channels = 2, int hertz = 48000) {
        put(name + ".wav", wav(pcm(samples), channels, hertz));
    };
    file("same", sound);
    file("half", changed(sound, 0.5, 0.5));
    file("inverted", changed(sound, -1, -1));
    file("swapped", changed(sound, 1, 1, true));
    file("left", changed(sound, 0, 1));
    file("trimmed", {from(1), sound.end()});
    file("short", {sound.begin(), from(3)});
    file("tone", tone);
    // Six channels of which only the front ones sound; velaenc brings both to stereo at 48 kHz.
    std::vector<std::int16_t> six;
    for (std::size_t i = 0; i < sound.size(); i += 2)
        six.insert(six.end(), {sound[i], sound[i + 1], 0, 0, 0, 0});
    file("six", six, 6);
    file("slow", sound, 2, 32000);
    run("ffmpeg -v error -i same.wav -c:a alac film.m4a");
    for (const char *name : {"same", "left", "tone", "six", "slow"})
        run(std::string("velaenc --quiet --bitrate 384 --to-rate 48000 --mode stereo ") + name + ".wav "
            + name + ".mp2");
    const std::string stream = get("same.mp2");
    constexpr std::size_t frame = 1152;
    put("lost.mp2", stream.substr(0, 50 * frame) + stream.substr(52 * frame));
    put("doubled.mp2", stream.substr(0, 120 * frame) + stream.substr(119 * frame));
    file("tiny", {sound.begin(), from(0.4)});
    const std::string other_layer = encoded("--layer 1 tiny.wav"),
                      mono = encoded("--mode mono tiny.wav"),
                      others = std::to_string(frames_of(other_layer).size() + frames_of(mono).size());
    put("mixed.mp2", stream + other_layer + mono);
    const struct {
        const char *files;
        int offset;
        std::string fields; ///< that differ from those of the same source
    } cases[] = {{"same.wav same.mp2", -481, "{}"},
                 {"half.wav same.mp2", -481, R"({"gain_db":6.0})"},
                 {"inverted.wav same.mp2", -481, R"({"inverted":true})"},
                 {"swapped.wav same.mp2", -481, R"({"swapped":true})"},
                 {"left.wav left.mp2", -481, "{}"},
                 {"tone.wav tone.mp2", -481, "{}"},
                 {"six.wav six.mp2", -481, "{}"},
                 {"slow.wav slow.mp2", -481, "{}"},
                 {"film.m4a same.mp2", -481, "{}"},
                 {"trimmed.wav same.mp2", -48481, R"({"outside":43,"source_seconds":3.0})"},
                 {"short.wav same.mp2", -481, R"({"outside":42,"source_seconds":3.0})"},
                 {"same.wav lost.mp2", -481, R"({"jumps":[{"frame":50,"samples":2304}]})"},
                 {"same.wav doubled.mp2", -481, R"({"jumps":[{"frame":120,"samples":-1152}]})"},
                 {"same.wav mixed.mp2", -481, R"({"outside":1,"others":)" + others + "}"}};
    nlohmann::json same;
    for (const auto &[files, offset, fields] : cases) {
        const auto said = json_of("--source " + std::string(files))["comparison"];
        nlohmann::json expected{{"gain_db", 0.0},
                                {"inverted", false},
                                {"swapped", false},
                                {"outside", 0},
                                {"others", 0},
                                {"source_begin", 0.0},
                                {"jumps", nlohmann::json::array()},
                                {"source_seconds", std::string(files).starts_with("slow") ? 6.0 : 4.0}};
        expected.update(nlohmann::json::parse(fields));
        EXPECT_EQ(said["offset"], offset) << files;
        expect_fields(said, expected, files);
        EXPECT_NEAR(said["source_end"], said["source_seconds"], 0.02) << files;
        for (const char *figure : {"subband_level", "subband_snr", "subband_nmr"}) {
            const bool is_silent = said[figure][0] == nlohmann::json(std::vector(32, -150.0));
            EXPECT_EQ(is_silent, std::string(files).starts_with("left")) << files << figure;
        }
        // None of the figures suffers.
        if (!same.is_object()) same = said;
        if (std::string(files).find("tone") != std::string::npos) continue;
        EXPECT_GT(said["snr"], same["snr"].get<double>() - 2) << files;
        EXPECT_LT(said["worst_nmr"], same["worst_nmr"].get<double>() + 6) << files;
    }
    const auto text = run("velainfo --source same.wav doubled.mp2").out;
    EXPECT_NE(text.find("from frame 120 on 1152 samples are doubled"), std::string::npos) << text;
    // Of a source that is too long to be held whole.
    file("long", noise(50 * rate), 1);
    file("start", noise(10 * rate), 1);
    for (const std::string name : {"long", "start"})
        run("velaenc --quiet --mode mono --bitrate 192 " + name + ".wav " + name + ".mp2");
    const auto whole = json_of("--source long.wav long.mp2")["comparison"];
    EXPECT_TRUE(whole["offset"] == -481 && whole["jumps"].empty() && whole["outside"] == 0) << whole;
    EXPECT_NEAR(whole["snr"], json_of("--source start.wav start.mp2")["comparison"]["snr"], 0.2);
}

TEST_F(info_test, the_source_is_found_at_its_place_and_its_figures_are_those_of_the_frames) {
    const auto sound = noise(2 * 60000);
    put("source.wav", wav(pcm(sound, 3), 2, 48000, 3));
    put("later.wav", wav(pcm({sound.begin() + 2 * 5000, sound.end()}), 2, 48000));
    put("other.wav", wav(pcm(noise(2 * 60000, 99)), 2, 48000));
    run("velaenc --quiet --layer 1 --bitrate 448 later.wav x.mp2");
    // By hand: the filterbanks delay by 481 samples, and in Layer I the encoder looks back by 64 more.
    const auto whole = json_of("--source source.wav x.mp2")["comparison"];
    EXPECT_EQ(whole["offset"], 5000 - 481 - 64);
    std::vector<std::int16_t> loud(noise(2 * 48000));
    for (auto &sample : loud)
        sample = static_cast<std::int16_t>(sample < 0 ? -32768 : 32767);
    put("loud.wav", wav(pcm(loud), 2, 48000));
    run("velaenc --quiet --bitrate 192 loud.wav loud.mp2");
    const auto clipped =
        std::ranges::count_if(heard("loud.mp2"), [](float x) { return x > 0.99995F || x <= -1; });
    const auto counted = json_of("--source loud.wav loud.mp2")["comparison"]["clipped"].get<int>();
    EXPECT_TRUE(clipped > 1000 && std::abs(clipped - counted) < 10) << clipped << " " << counted;
    // Two frames of 448 bytes that are gone do not move those behind them.
    put("hole.mp2", get("x.mp2").replace(40 * 448, 2 * 448, 2 * 448, '\0'));
    EXPECT_NEAR(json_of("--source source.wav hole.mp2", 3)["comparison"]["snr"], whole["snr"], 0.5);
    // What is told of the whole is that of its frames.
    std::uint64_t frames = 0;
    double worst = -1e9, sums[3][64] = {}, all[3] = {};
    const auto x = get("x.mp2");
    const auto totals = tools::compare_with_source(
        tools::stream_name(path("x.mp2")), report_of({x.begin(), x.end()}), path("source.wav"),
        [&](const auto &frame) {
            ++frames;
            for (int i = 0; i < 64; ++i) {
                const int ch = i / 32, sb = i % 32;
                worst = std::max<double>(worst, frame.nmr[ch][sb]);
                const float levels[] = {frame.level[ch][sb], frame.error[ch][sb], frame.nmr[ch][sb]};
                for (int k = 0; k < 3; ++k)
                    sums[k][i] += std::pow(10, levels[k] / 10), all[k] += std::pow(10, levels[k] / 10);
            }
        });
    EXPECT_TRUE(totals.frames == frames && std::fabs(totals.worst_nmr - worst) < 1e-3);
    const auto decibels = [](double power) { return 10 * std::log10(power); };
    const auto count = static_cast<double>(frames);
    EXPECT_NEAR(totals.mean_nmr, decibels(all[2] / 64 / count), 1e-3);
    EXPECT_NEAR(totals.snr, decibels(all[0] / all[1]), 1e-3);
    for (int i = 0; i < 64; ++i) {
        EXPECT_NEAR(totals.subband_level[i / 32][i % 32], decibels(sums[0][i] / count), 1e-3) << i;
        EXPECT_NEAR(totals.subband_snr[i / 32][i % 32], decibels(sums[0][i] / sums[1][i]), 1e-3) << i;
        EXPECT_NEAR(totals.subband_nmr[i / 32][i % 32], decibels(sums[2][i] / count), 1e-3) << i;
    }
    put("silent.wav", wav(std::string(96000, '\0'), 2, 48000));
    put("silent.mp2", encoded("silent.wav"));
    for (const auto &[files, words] : {std::pair{"other.wav x.mp2", "does not seem to be the source"},
                                       {"silent.wav silent.mp2", "nothing to align"}})
        run(std::string("velainfo --source ") + files, 2, words);
}

} // namespace
} // namespace velaenc_test
