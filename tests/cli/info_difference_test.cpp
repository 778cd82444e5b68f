// Two streams side by side, and one that does not end.
#include "info_workbench.hpp"

#include <cmath>
#include <regex>

namespace velaenc_test {
namespace {

TEST_F(info_test, two_streams_are_matched_frame_by_frame) {
    auto sound = noise(2 * 48000 * 60);
    std::fill_n(sound.begin() + 2 * 1152 * 1300, 2 * 1152 * 100,
                std::int16_t{0}); // whose frames repeat
    put("a.wav", wav(pcm(sound), 2, 48000));
    const std::string a = encoded("--bitrate 192 a.wav");
    const auto part = [&](unsigned from, unsigned to) {
        return a.substr(576 * from, 576 * (to - from));
    };
    std::string flag = a, bit = part(0, 50) + part(52, 2500);
    flag[40 * 576 + 3] ^= 8;
    bit[48 * 576 + 400] ^= 1;
    const std::pair<std::string, const char *> cases[] = {
        {a, R"({"same":true,"equal":2500,"place_count":0,"noise":{"frames":2500,"noisy":0}})"},
        {"TAG" + std::string(125, ' ') + a, R"({"same":true,"equal":2500,"places":[]})"},
        {flag, R"({"equal":2499,"changed":1,"fields":{"copyright":1},"noise":{"frames":2500,"noisy":0},
                   "first":[{"field":"copyright","place":"","values":["0","1"]}]})"},
        {part(0, 50) + part(52, 2500),
         R"({"equal":2498,"alone":[2,0],"places":[{"kind":"lost","frames":2,
          "frame":[50,50],"offset":[28800,28800],"seconds":[1.2,1.2],"fields":[]}]})"},
        {part(0, 120) + part(110, 2500),
         R"({"equal":2500,"alone":[0,10],"places":[{"kind":"doubled","frames":10,
          "frame":[120,120],"offset":[69120,69120],"seconds":[2.88,2.88],"fields":[]}]})"},
        {part(0, 120) + part(700, 703) + part(120, 2500),
         R"({"equal":2500,"alone":[0,3],"place_count":1})"},
        {part(0, 50) + std::string(576, 'x') + part(51, 2500),
         R"({"equal":2499,"alone":[1,0],"changed":0})"},
        {bit, R"({"equal":2497,"changed":1,"alone":[2,0],"fields":{"samples":1},"place_count":2})"},
        {part(0, 1350) + part(1355, 2500), R"({"equal":2495,"alone":[5,0],"place_count":1})"},
        {part(2100, 2500), R"({"equal":400,"alone":[2100,0],"changed":0,"place_count":1})"},
        {part(0, 120) + part(121, 122) + part(120, 121) + part(122, 2500),
         R"({"equal":2498,"alone":[0,0],"changed":2,"place_count":1})"}};
    put("a.mp2", a);
    for (const auto &[other, fields] : cases) {
        put("b.mp2", other);
        const auto expected = nlohmann::json::parse(fields);
        const bool same = expected.contains("same");
        const auto said = json_of("--diff a.mp2 b.mp2", same ? 0 : 7),
                   turned = json_of("--diff b.mp2 a.mp2", same ? 0 : 7);
        expect_fields(said, expected, fields);
        EXPECT_TRUE(turned["equal"] == said["equal"] && turned["alone"][0] == said["alone"][1])
            << turned;
    }
    put("b.mp2", bit);
    EXPECT_EQ(run("velainfo --diff a.mp2 b.mp2", 7).out,
              filled_in(get(VELAINFO_DIFFERENCE), json_of("--diff a.mp2 b.mp2", 7)));
    const std::string turned = run("velainfo --diff b.mp2 a.mp2", 7).out;
    EXPECT_TRUE(turned.ends_with(
        "    added: frames 50 to 51, 1.200 s, byte 28800 of B (A: frame 50, 1.200 s, byte 28800)\n"))
        << turned;
    EXPECT_EQ(run("velainfo --brief --diff a.mp2 a.mp2").out,
              "a.mp2 and a.mp2 have the same 2500 frames\n");
}

TEST_F(info_test, two_encodings_are_matched_by_their_sound) {
    auto sound = noise(2 * 48000 * 5);
    for (std::size_t i = 2; i < sound.size(); ++i)
        sound[i] =
            static_cast<std::int16_t>(0.95 * sound[i - 2] + (i % 2 == 0 ? 0.15 : 0.04) * sound[i]);
    const auto file = [&](const std::string &name, std::size_t from, double gain,
                          const std::string &options) {
        auto part = std::vector(sound.begin() + static_cast<std::ptrdiff_t>(2 * from), sound.end());
        for (auto &sample : part)
            sample = static_cast<std::int16_t>(gain * sample);
        put("x.wav", wav(pcm(part), 2, 48000));
        put(name + ".mp2", encoded(options + " x.wav"));
    };
    file("a", 0, 1, "--bitrate 256");
    file("frames", 3 * 1152, 1, "--bitrate 128");
    file("samples", 1000, 1, "--bitrate 128");
    file("inverted", 0, -0.5, "--bitrate 256");
    file("layer", 0, 1, "--layer 1 --bitrate 384");
    file("mono", 0, 1, "--mode mono --bitrate 128");
    const std::string other = get("frames.mp2");
    put("jump.mp2", other.substr(0, 100 * 384) + other.substr(102 * 384));
    const std::pair<const char *, const char *> cases[] = {
        {"frames", R"({"offset":3456})"},
        {"samples", R"({"offset":1000})"},
        {"inverted", R"({"offset":0,"inverted":true,"gain_db":-6.0})"},
        {"layer", R"({"offset":-64})"},
        {"mono", R"({"offset":0})"},
        {"jump", R"({"offset":3456,"jumps":[{"frame":100,"samples":2304}]})"}};
    const auto heard_first = heard("a.mp2");
    for (const auto &[name, fields] : cases) {
        const auto said = json_of(std::string("--diff a.mp2 ") + name + ".mp2", 7);
        nlohmann::json expected{{"inverted", false},
                                {"swapped", false},
                                {"gain_db", 0.0},
                                {"jumps", nlohmann::json::array()}};
        expected.update(nlohmann::json::parse(fields));
        expect_fields(said["sound"], expected, name);
        if (std::string(name) != "frames" && std::string(name) != "samples") continue;
        // ffmpeg hears as much noise between them.
        const auto second = heard(std::string(name) + ".mp2");
        const std::size_t begin = 2 * expected["offset"].get<std::size_t>();
        double power = 0, signal = 0;
        for (std::size_t i = 0; i < second.size(); ++i) {
            power += std::pow(second[i] - heard_first[begin + i], 2);
            signal += std::pow(heard_first[begin + i], 2);
        }
        EXPECT_NEAR(said["noise"]["level"], 10 * std::log10(power / static_cast<double>(second.size())),
                    0.3)
            << name;
        EXPECT_NEAR(said["noise"]["snr"], 10 * std::log10(signal / power), 0.3) << name;
    }
    EXPECT_EQ(json_of("--diff a.mp2 frames.mp2", 7)["alone"][0], 3);
    const std::string text = run("velainfo --diff a.mp2 inverted.mp2", 7).out;
    EXPECT_TRUE(std::regex_search(
        text, std::regex("\n  sound         B is A's from sample \\+0 on, correlation 0\\.9\\d{3}\n "
                         "{16}the gain of B is "
                         "-6\\.0\\d dB\n {16}the polarity of B is inverted\n  noise  ")))
        << text;
    file("softer", 0, 0.5, "--mode mono --bitrate 192");
    for (const std::string first : {"mono", "a"})
        expect_fields(json_of("--diff " + first + ".mp2 softer.mp2", 7)["sound"],
                      {{"offset", 0}, {"gain_db", -6.0}, {"swapped", false}}, first);
    EXPECT_EQ(json_of("--diff a.mp2 none.mp2", 2)["file"], "none.mp2");
    put("x.wav", wav(pcm(noise(96000, 5)), 2, 48000));
    put("unlike.mp2", encoded("x.wav"));
    EXPECT_TRUE(json_of("--diff a.mp2 unlike.mp2", 7)["unlike"].is_string());
}

TEST_F(info_test, standard_input_that_goes_on_has_a_line_a_second_and_its_report_at_ctrl_c) {
    put("x.mp2", encoded("48000.wav"));
    // The pipe's end stays open behind a frame that is cut.
    const std::string
        feed = "rm -f pipe; mkfifo pipe; exec 3<>pipe; cat x.mp2 >&3; head -c 300 x.mp2 >&3; ",
        stop = "timeout --preserve-status -s INT ";
    run(feed + "script -qec '" + stop + "3.2 velainfo --json - <pipe >out' screen >screen.out");
    const std::string screen = get("screen");
    // Noise up to half of full scale, 10.8 dB below it, in 27 of 32 subbands.
    for (const char *line :
         {"0:00, 10 frames, 48000 Hz, 224 kbit/s, no damage, level -11.", "nothing for 2 s"})
        EXPECT_NE(screen.find(line), std::string::npos) << line << screen;
    const auto said = nlohmann::json::parse(get("out"), nullptr, false);
    EXPECT_TRUE(said["frames"] == 21 && said["damage_count"] == 0 && said["event_count"] == 1) << said;
    const auto quiet = run(feed + stop + "1.3 velainfo --frames - <pipe");
    EXPECT_EQ(quiet.err, "") << "a line that nobody sees";
    EXPECT_EQ(std::ranges::count(quiet.out, '\n'), 22);
}

} // namespace
} // namespace velaenc_test
