// The page of pictures in a browser: drawn, hovered over, zoomed, in both colour schemes and at two sizes.
#include "info_workbench.hpp"

#include <map>
#include <sstream>

namespace velaenc_test {
namespace {

/// Every picture has in every frame what the frame, the trace or two others of the pictures say.
void expect_values(const nlohmann::json &shown, const std::vector<frame> &frames,
                   const std::string &trace, std::size_t damaged) {
    using row_values = std::map<std::string, std::vector<nlohmann::json>>;
    std::istringstream lines(trace);
    std::string line;
    for (std::size_t k = 0; std::getline(lines, line); ++k) {
        const auto decided = nlohmann::json::parse(line);
        const frame &f = frames.at(k);
        EXPECT_EQ(decided["frame"], k);
        const auto &b = f.bits;
        const nlohmann::json none;
        row_values of_frame{{"marks", {1, 0, 0}},
                            {"bound", {f.mode == 1 ? nlohmann::json(f.bound) : none}}},
            of_trace{{"left", {decided["left"]}}};
        for (const int part :
             {b.header, b.crc, b.allocation, b.scfsi, b.scalefactors, b.samples, 0, b.rest})
            of_frame["purpose"].push_back(part / 30.72); // per cent of 3072
        double power[2] = {};
        for (std::size_t i = 0; i < 64; ++i) {
            const std::size_t ch = i / 32, sb = i % 32;
            const bool is_coded = static_cast<int>(sb) < f.sblimit;
            const int steps = f.steps[ch][sb];
            int loudest = 63;
            for (const auto &part : f.scalefactor[ch]) {
                loudest = std::min(loudest, part[sb]);
                power[ch] += steps > 0 ? std::pow(2, 2 - part[sb] / 1.5) / 3 : 0;
            }
            of_frame["allocation"].push_back(is_coded ? nlohmann::json(tools::bits_per_sample(2, steps))
                                                      : none);
            of_frame["scalefactors"].push_back(steps > 0 ? nlohmann::json(6.0206 * (1 - loudest / 3.0))
                                                         : none);
            for (const char *picture : {"smr", "threshold", "mnr"})
                of_trace[picture].push_back(is_coded ? decided[picture][ch][sb] : none);
            const auto at = [&](const char *picture) {
                const auto &value = shown[picture][i][k];
                return value.is_number() ? value.get<double>() : -200;
            };
            if (at("snr") < 8) continue;
            EXPECT_NEAR(at("snr"), at("source_level") - at("error"), 0.8) << k << ' ' << i;
            EXPECT_NEAR(at("nmr"), decided["smr"][ch][sb].get<double>() - at("snr"), 0.8)
                << k << ' ' << i;
            EXPECT_NEAR(at("spectrum"), at("source_level"), 3) << k << ' ' << i;
        }
        of_frame["level"] = {10 * std::log10(power[0]), 10 * std::log10(power[1])};
        if (k == damaged)
            for (auto &[picture, rows] : of_frame)
                rows = picture == "marks" ? std::vector<nlohmann::json>{0, 1, 0}
                                          : std::vector(rows.size(), none);
        of_frame.merge(of_trace);
        const std::map<std::string, double> steps{
            {"allocation", 0.034}, {"purpose", 0.21}, {"bound", 0.13}, {"left", 0.51}};
        for (const auto &[picture, rows] : of_frame)
            for (std::size_t i = 0; i < rows.size(); ++i) {
                const auto &there = shown[picture][i][k];
                EXPECT_TRUE(rows[i].is_null() || there.is_null()
                                ? rows[i] == there
                                : std::fabs(rows[i].get<double>() - there.get<double>())
                                      < (steps.contains(picture) ? steps.at(picture) : 0.26))
                    << picture << ' ' << i << ", frame " << k << ": " << there << " for " << rows[i];
            }
    }
}

class page_test : public workbench {
  protected:
    /// What the browser makes of the page.
    nlohmann::json browse(const std::string &page, const std::string &options) {
        std::string html = get(page);
        const std::string player = get(PAGE_PLAYER), mark = "<!-- the end -->";
        html.insert(html.find("<title>"), player.substr(0, player.find(mark)));
        html.insert(html.rfind("</body>"), player.substr(player.find(mark)));
        put("played.html", html);
        const std::string dom =
            shell("chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run"
                  " --disable-background-networking --disable-component-update --disable-sync"
                  " --user-data-dir=$PWD/profile --virtual-time-budget=3000 --dump-dom "
                  + options + " file://" + path("played.html") + "; rm -rf profile")
                .out;
        const auto begin = dom.find("RESULT"), end = dom.rfind("END");
        if (begin == std::string::npos) return {};
        return nlohmann::json::parse(dom.substr(begin + 6, end - begin - 6), nullptr, false);
    }
};

TEST_F(page_test, is_drawn_hovered_and_zoomed_without_an_error_in_light_and_dark_on_desk_and_phone) {
    put("a.wav", wav(pcm(noise(2 * 96000)), 2, 48000));
    run("velaenc --quiet --trace t.jsonl --mode joint --crc --bitrate 128 a.wav a.mp2");
    std::string damaged = get("a.mp2");
    const auto frames = frames_of(damaged);
    damaged.at(5 * 384 + 4) ^= 1; // the CRC of frame 5
    put("a.mp2", damaged);
    // A name that looks like a place of the page's own.
    run("mkdir -p 'x/*js*' && cp a.mp2 'x/*js*'; velainfo --source a.wav --trace t.jsonl --html a.html "
        "'x/*js*/a.mp2'",
        3);
    run("velaenc --quiet --trace other.jsonl --bitrate 192 a.wav b.mp2; touch empty; (cat t.jsonl; "
        "echo) >long");
    put("none.jsonl", "{}\n");
    put("none.html", "<!DOCTYPE html><html lang=\"en\"><head><title>velainfo</title></head></html>");
    run("velainfo --html none.html a.mp2", 4, "exists and is not a page of velainfo's");
    for (const auto &[trace, words] :
         {std::pair{"none.jsonl", "not what velaenc --trace writes: line 1"},
          {"other.jsonl", "is the trace of another stream: line 1"},
          {".", "cannot read the trace ."},
          {"empty", "ends after 0 frames"},
          {"long", "which has only 84 frames"}})
        run(std::string("velainfo --html a.html a.mp2 --trace ") + trace, 2, words);
    for (const bool dark : {false, true}) {
        const auto seen =
            browse("a.html", std::string("--blink-settings=preferredColorScheme=") + (dark ? "0" : "1")
                                 + " --window-size=" + (dark ? "500,900" : "1280,1400"));
        ASSERT_TRUE(seen.is_object()) << "no result";
        EXPECT_EQ(seen["errors"].size(), 0u) << seen["errors"];
        EXPECT_TRUE(seen["dark"] == dark && seen["wide"] == false && seen["cursor"] == true) << seen;
        EXPECT_EQ(seen["paper"], dark ? "rgb(21, 24, 28)" : "rgb(251, 251, 249)");
        EXPECT_EQ(seen["titles"].size(), 2u + 6 + 4 + 4) << seen["titles"];
        for (const int colours : seen["colours"])
            EXPECT_GT(colours, 3) << seen["colours"];
        // Two seconds; the wheel keeps the middle in its place, dragging a quarter moves by a quarter.
        EXPECT_NE(seen["hover"].get<std::string>().find("frame 42"), std::string::npos)
            << seen["hover"];
        const double from = seen["zoomed"][0], to = seen["zoomed"][1], total = 84 * 0.024;
        EXPECT_NEAR(from + to, total, 0.01);
        EXPECT_NEAR(to - from, total * std::exp(-2), 0.01);
        EXPECT_NEAR(seen["dragged"][0].get<double>(), from - (to - from) / 4, 0.01);
        EXPECT_EQ(seen["whole"], (nlohmann::json{0.0, total}));
        EXPECT_EQ(seen["scrolled"], seen["whole"]) << "the wheel alone zooms";
        const std::string keys = seen["keys"];
        EXPECT_NE(keys.find("frame 42"), std::string::npos) << keys;
        EXPECT_NE(keys.find("left, subband 0 (0.0 to 0.8 kHz)"), std::string::npos) << keys;
        EXPECT_EQ(seen["rows"][63], "right, subband 31");
        EXPECT_EQ(seen["verdict"], "Damaged: 1 place, 1 frame; 0:02.016");
        EXPECT_EQ(seen["places"], (nlohmann::json{"0:00.120 CRC"}));
        EXPECT_TRUE(seen["jumped"][0] == 0.0 && seen["jumped"][1] == 1.0) << seen["jumped"];
        EXPECT_EQ(seen["title"], "x/*js*/a.mp2 - velainfo");
        if (!dark) expect_values(seen["values"], frames, get("t.jsonl"), 5);
        const auto loudness =
            nlohmann::json::parse(run("velainfo --json --sound a.mp2", 3).out)["measured"]["loudness"];
        EXPECT_NEAR(seen["values"]["loudness"][0][80].get<double>(), loudness.get<double>(),
                    0.6); // steady noise
        EXPECT_EQ(seen["sections"], seen["titles"].size()) << "a picture without its heading";
    }
}

TEST_F(page_test, stays_below_five_megabytes_for_an_hour_and_keeps_a_single_wrong_frame) {
    put("a.wav", wav(pcm(noise(48000)), 1, 48000));
    const auto frames =
        run("ffmpeg -v error -i a.wav -ar 16000 -b:a 8k -f mp2 -").out; // 72 bytes, 72 ms
    std::string hour;
    while (hour.size() < 50010 * 72)
        hour += frames;
    hour.resize(50010 * 72);
    hour.at(40000 * 72 + 3) ^= 2; // a reserved emphasis
    put("<hour>.mp2", hour);
    run("velainfo --html hour.html '<hour>.mp2'", 3);
    const std::string html = get("hour.html"), place = "frame 40000, 2880.000 s, byte 2880000: ";
    EXPECT_LT(html.size(), 5'000'000u);
    EXPECT_NE(html.find("<title>&lt;hour&gt;.mp2 - velainfo</title>"), std::string::npos);
    EXPECT_NE(html.find(place), std::string::npos);
    EXPECT_EQ(html.find("<hour>"), std::string::npos) << "a name becomes an element";
    EXPECT_EQ(html.find("http"), std::string::npos) << "something is to be loaded";
    const std::string brief = run("velainfo --brief '<hour>.mp2'", 3).out;
    EXPECT_NE(brief.find(", mono, 8 kbit/s, 1:00:00.720; " + place), std::string::npos) << brief;
}

} // namespace
} // namespace velaenc_test
