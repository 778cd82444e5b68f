// The page of pictures in a browser: drawn, hovered over, zoomed, in both colour schemes and at two sizes.
#include "workbench.hpp"

#include <nlohmann/json.hpp>

namespace velaenc_test {
namespace {

/// Put into a copy of the page: count errors from the start; play the user and tell what came of it.
constexpr const char *watch = R"(<script>
const errors = [];
addEventListener('error', e => errors.push(e.message));
console.error = (...words) => errors.push(words.join(' '));
</script>)";
constexpr const char *play = R"(<script>
const colours = plot => {
  const {width, height} = plot.canvas, pixels = plot.canvas.getContext('2d').getImageData(0, 0, width, height).data;
  return new Set(new Uint32Array(pixels.buffer)).size;
};
const place = (x, y) => {
  const box = plots[0].box.getBoundingClientRect();
  return {clientX: box.left + gutter + x * plots[0].width, clientY: box.top + y, pointerId: 1, cancelable: true};
};
const pointer = (type, x, y) => plots[0].box.dispatchEvent(new PointerEvent(type, place(x, y)));
drawAll();
const seen = {titles: plots.map(p => p.panel.title), colours: plots.map(colours), dark: matchMedia('(prefers-color-scheme: dark)').matches,
  paper: getComputedStyle(document.body).backgroundColor, wide: document.documentElement.scrollWidth > innerWidth};
pointer('pointermove', 0.5, 5);
seen.hover = readout.textContent;
seen.cursor = plots.every(p => p.cursor.style.visibility === 'visible');
plots[0].box.dispatchEvent(new WheelEvent('wheel', {...place(0.5, 5), deltaY: -600}));
seen.scrolled = [...view];
plots[0].box.dispatchEvent(new WheelEvent('wheel', {...place(0.5, 5), deltaY: -600, ctrlKey: true}));
drawAll();
seen.zoomed = [...view];
pointer('pointerdown', 0.5, 5), pointer('pointermove', 0.75, 5), pointer('pointerup', 0.75, 5);
seen.dragged = [...view];
document.getElementById('all').click();
seen.whole = [...view];
const map = plots.find(p => p.panel.kind === 'map');
map.box.focus();
for (let i = 0; i < 42; ++i)
  map.box.dispatchEvent(new KeyboardEvent('keydown', {key: 'ArrowRight', bubbles: true}));
seen.keys = readout.textContent;
seen.verdict = document.querySelector('.verdict').textContent;
seen.places = [...document.querySelectorAll('li')].map(e => e.textContent);
document.querySelector('li button').click();
seen.jumped = [...view];
seen.title = document.title;
seen.sections = document.querySelectorAll('section h3 ~ .plot').length;
document.body.textContent = '';
document.body.append('RESULT' + JSON.stringify({...seen, errors}) + 'END');
</script>)";

class page_test : public workbench {
  protected:
    /// What the browser makes of the page.
    nlohmann::json browse(const std::string &page, const std::string &options) {
        std::string html = get(page);
        html.insert(html.find("<title>"), watch);
        html.insert(html.rfind("</body>"), play);
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
        EXPECT_EQ(seen["verdict"], "Damaged: 1 place, 1 frame; 0:02.016");
        EXPECT_EQ(seen["places"], (nlohmann::json{"0:00.120 CRC"}));
        EXPECT_TRUE(seen["jumped"][0] == 0.0 && seen["jumped"][1] == 1.0) << seen["jumped"];
        EXPECT_EQ(seen["title"], "x/*js*/a.mp2 - velainfo");
        EXPECT_EQ(seen["sections"], seen["titles"].size()) << "a picture without its heading";
    }
}

TEST_F(page_test, stays_below_five_megabytes_for_an_hour_and_keeps_a_single_wrong_frame) {
    put("a.wav", wav(pcm(noise(2 * 48000 * 5)), 2, 48000));
    run("velaenc --quiet --crc --bitrate 64 a.wav a.mp2 && for i in {1..720}; do cat a.mp2; done "
        ">hour.mp2");
    std::string hour = get("hour.mp2");
    hour.at(100000 * 192 + 4) ^= 1;
    put("<hour>.mp2", hour);
    run("velainfo --html hour.html '<hour>.mp2'", 3);
    const std::string html = get("hour.html");
    EXPECT_LT(html.size(), 5'000'000u);
    EXPECT_NE(html.find("<title>&lt;hour&gt;.mp2 - velainfo</title>"), std::string::npos);
    EXPECT_NE(html.find("frame 100000, 2400.000 s, byte 19200000: CRC"), std::string::npos);
    EXPECT_EQ(html.find("<hour>"), std::string::npos) << "a name becomes an element";
    EXPECT_EQ(html.find("http"), std::string::npos) << "something is to be loaded";
}

} // namespace
} // namespace velaenc_test
