// What velainfo says about streams: sound ones, damaged ones, other people's.
#include "host/encoding.hpp"
#include "velainfo/comparison.hpp"
#include "velainfo/stream_report.hpp"
#include "velainfo/timeline.hpp"
#include "workbench.hpp"
#include "written_frame.hpp"

#include <cmath>
#include <nlohmann/json.hpp>
#include <random>

/// fuzz/info_fuzz.cpp: aborts on a fault.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace velaenc_test {
namespace {

tools::stream_report report_of(const bytes &stream) {
    tools::report_builder builder("stream", 0);
    for_each_piece(stream, [&](const tools::stream_piece &piece) { builder.add(piece); });
    return builder.finish("");
}

bytes encoded_noise(const mp1a_test::stream &how, int frames) {
    return joined(mp1a_test::encode(how, how.pcm(frames * how.frame_samples())));
}

/// What was done to a stream: `changed` bytes at `place`, and what came behind them is `moved` bytes further on.
struct damage {
    std::size_t place = 0, changed = 0;
    std::ptrdiff_t moved = 0;
    bool visible = true; ///< for certain
};

damage harm(bytes &stream, const std::vector<std::size_t> &frames, unsigned kind,
            std::mt19937 &random) {
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    const std::size_t frame = frames[2 + below(frames.size() - 4)], place = frame + below(frames[1]),
                      size = 1 + below(200);
    const auto at = stream.begin() + static_cast<std::ptrdiff_t>(place);
    switch (kind) {
    case 0: { // a bit of the header, the CRC or the first allocations
        const std::size_t bit = below(8 * 9);
        stream[frame + bit / 8] ^= static_cast<std::uint8_t>(0x80 >> bit % 8);
        return {frame + bit / 8, 1};
    }
    case 1:
        stream.erase(at, at + static_cast<std::ptrdiff_t>(size));
        return {place, size, -static_cast<std::ptrdiff_t>(size)};
    case 2: {
        bytes noise(size);
        std::ranges::generate(noise, random);
        stream.insert(at, noise.begin(), noise.end());
        return {place, 0, static_cast<std::ptrdiff_t>(size)};
    }
    default: // a sector that was never written, or another one's
        std::generate_n(at, size, [&] { return kind == 3 ? 0 : random(); });
        return {place, size, 0, false};
    }
}

TEST(info, a_thousand_damaged_streams_hide_nothing_and_take_no_whole_frame_along) {
    std::mt19937 random(13);
    std::vector<bytes> originals;
    for (const mp1a_test::stream &how : {mp1a_test::stream{1, 0, 6, 1, 48000},
                                         {2, 1, 9, 1, 44100},
                                         {2, 3, 8, 1, 32000},
                                         {1, 3, 9, 1, 44100}})
        originals.push_back(encoded_noise(how, 12));
    int lost = 0;
    for (unsigned i = 0; i < 1000; ++i) {
        SCOPED_TRACE(i);
        const bytes &original = originals[i % 4];
        std::vector<std::size_t> starts;
        for_each_piece(original, [&](const auto &piece) { starts.push_back(piece.offset); });
        ASSERT_EQ(starts.size(), 12u);
        bytes stream = original;
        const damage done = harm(stream, starts, i / 4 % 5, random);
        std::vector<std::size_t> sound;
        std::size_t sum = 0;
        for_each_piece(stream, [&](const tools::stream_piece &piece) {
            EXPECT_EQ(piece.offset, sum);
            sum += piece.length;
            if (piece.is_frame && tools::parse_frame(piece.bytes).faults == 0)
                sound.push_back(piece.offset);
        });
        EXPECT_EQ(sum, stream.size());
        for (std::size_t f = 0; f < starts.size(); ++f) {
            const std::size_t end = f + 1 < starts.size() ? starts[f + 1] : original.size();
            const bool is_behind = starts[f] >= done.place + done.changed;
            const std::size_t here = starts[f] + static_cast<std::size_t>(is_behind ? done.moved : 0);
            lost += (end <= done.place || is_behind) && !std::ranges::binary_search(sound, here);
        }
        if (i % 10 == 0) LLVMFuzzerTestOneInput(stream.data(), stream.size());
        const auto report = report_of(stream);
        ASSERT_FALSE(done.visible && report.is_sound());
        const auto added = static_cast<std::size_t>(std::max<std::ptrdiff_t>(done.moved, 0));
        for (const auto &event : report.events) {
            // Bytes too many show at the end of the frame that they are in.
            EXPECT_LE(event.offset, done.place + 2 * starts[1] + done.changed + added);
            EXPECT_GE(event.offset + 2 * starts[1], done.place);
        }
    }
    EXPECT_EQ(lost, 0);
}

TEST(info, a_picture_keeps_least_mean_and_greatest_values_however_long_it_is) {
    tools::timeline pictured({{.name = "", .title = "", .unit = "", .rows = {"only"}}});
    for (const std::uint64_t number : {0u, 1000000u})
        pictured.add(number, std::vector<float>(1, 3));
    EXPECT_EQ(pictured.columns(), 3907u); // 256 frames each: 128 would make more than 4096
    pictured.limit_columns(100);
    EXPECT_EQ(pictured.columns(), 62u);
    tools::timeline two({{.name = "", .title = "", .unit = "", .rows = {"upper", "lower"}}});
    const float none = std::nanf(""), values[4][2] = {{1, none}, {2, 5}, {3, none}, {10, 7}};
    for (unsigned i = 0; i < 4; ++i)
        two.add(i, values[i]);
    const auto data = [&] { return nlohmann::json::parse(two.json())[0]["data"]; };
    EXPECT_EQ(data(), "AQIDCv8F/wc="); // 1 2 3 10, 255 5 255 7
    two.limit_columns(1);
    EXPECT_EQ(data(), "BAYBBQoH"); // 4 6, 1 5, 10 7
}

TEST(info, padding_is_exact_while_a_stream_keeps_its_bitrate_to_a_slot) {
    // 128 kbit/s at 44.1 kHz: Layer II has 417.959184 slots a frame, Layer I 34.829932; at 160 kbit/s
    // 522.448980. 0 and 1 are a frame's padding, + one of 160 kbit/s, a dot a byte too many.
    const struct {
        int layer;
        std::string frames;
        double worst;
    } cases[] = {{2, std::string(24, '1'), 24 * 0.040816},
                 {2, std::string(25, '1'), 25 * 0.040816},
                 {2, "11011", 0.959184},
                 {2, "10101", 1.877551},
                 {2, "00", 1.918367},
                 {2, "00.00", 1.918367},
                 {2, "0+0", 0.959184},
                 {1, "11111100", 2 * 0.829932}};
    for (const auto &[layer, frames, worst] : cases) {
        std::mt19937 random(1);
        bytes stream;
        for (const char kind : frames) {
            written_frame frame{.layer = layer, .mode = 3};
            frame.bitrate_index = layer == 1 ? 4 : kind == '+' ? 9 : 8;
            frame.padding = kind == '1' ? 1 : 0;
            const bytes next = kind == '.' ? bytes(1) : frame.write(random);
            stream.insert(stream.end(), next.begin(), next.end());
        }
        const auto report = report_of(stream);
        EXPECT_NEAR(report.padding.worst, worst, 1e-5) << frames;
        EXPECT_EQ(report.padding.is_exact(), worst <= 1) << frames;
    }
}

class info_test : public workbench {
  protected:
    info_test() { put("48000.wav", wav(pcm(noise(48000)), 2, 48000)); }

    nlohmann::json json_of(const std::string &arguments, int status = 0) const {
        return nlohmann::json::parse(run("velainfo --json " + arguments, status).out, nullptr, false);
    }
};

TEST_F(info_test, containers_tags_and_foreign_bytes_are_told_from_damage) {
    const std::string stream = encoded("--crc 48000.wav - | cat");
    const std::string id3 = "ID3\4" + std::string(60, '\0');
    std::string riff = wav(stream, 2, 48000);
    riff[20] = 0x50; // WAVE_FORMAT_MPEG
    const struct {
        const char *fault;
        std::string bytes;
        int status;
        const char *word;
    } cases[] = {
        {"nothing", stream, 0, "\"events\":[]"},
        {"in WAV", riff, 0, "\"container\":\"wav\",\"bytes\":14112"},
        {"a chunk behind it", riff + "LIST" + little_endian(stream.size(), 4) + stream, 0,
         "\"container\":\"wav\",\"bytes\":14112"},
        {"tag before", id3 + stream, 0, "bytes of a tag (ID3)"},
        {"tag behind", stream + "TAG" + std::string(125, ' '), 0,
         "\"kind\":\"trailing\",\"damage\":false"},
        {"bytes before", "abc" + stream, 3,
         "\"kind\":\"leading\",\"damage\":true,\"offset\":0,\"length\":3"},
        {"bytes behind", stream + "abc", 3, "\"kind\":\"trailing\",\"damage\":true"},
        {"another stream behind", stream + encoded("--layer 1 48000.wav - | cat"), 0,
         "another kind of stream begins"},
        {"cut", stream.substr(0, stream.size() - 100), 3, "a frame of 672 bytes ends after 572"},
        {"bytes within", stream.substr(0, 1344) + "abcde" + stream.substr(1344), 3,
         "\"damage_count\":1,\"damaged_frames\":0,\"lost_bytes\":5"},
        {"PCM", wav(stream, 2, 48000), 2, "WAV file of PCM"},
        {"Layer III", "\xFF\xFB\x90\x44" + std::string(2000, 'x'), 2, "MPEG Layer III"},
        {"free format", "\xFF\xFD\x04\x44" + std::string(2000, 'x'), 2, "free format"},
        {"empty", "", 2, "is empty"},
        {"words", std::string(5000, 'x'), 2, "no frame of MPEG audio"}};
    for (const auto &[fault, content, status, word] : cases) {
        put("x", content);
        SCOPED_TRACE(fault);
        for (const char *arguments : {"x", "- <x", "- < <(cat x)"}) {
            const auto result = run(std::string("velainfo --json ") + arguments, status);
            const std::string said = result.out + result.err;
            EXPECT_NE(said.find(word), std::string::npos) << said;
        }
    }
}

TEST_F(info_test, presets_speak_the_librarys_messages_and_frames_are_listed_one_by_one) {
    run("velaenc --quiet --preset dvd 48000.wav dvd.mp2");
    run("velaenc --quiet --bitrate 64 --mode joint 48000.wav low.mp2");
    EXPECT_EQ(json_of("--preset dvd dvd.mp2")["violations"].size(), 0u);
    const auto rules = json_of("--preset vcd low.mp2", 3)["violations"];
    const std::string said =
        shell("velaenc --preset vcd --to-rate 48000 --mode joint --bitrate 64 48000.wav x.mp2").err;
    EXPECT_EQ(rules.size(), 3u) << rules;
    for (const std::string rule : rules)
        EXPECT_NE(said.find(rule), std::string::npos) << rule << said;
    const std::string list = shell("velainfo --frames dvd.mp2 low.mp2").out;
    EXPECT_EQ(std::ranges::count(list, '\n'), 2 * (21 + 1));
    EXPECT_NE(list.find("\n20 13440 672 0.480000 224 0 0 27 right 32 16 "), std::string::npos) << list;
    const outcome text = shell("velainfo dvd.mp2");
    for (const char *word : {"MPEG-1 Layer II, 48000 Hz, stereo, 224 kbit/s", "21 frames, 14112 bytes",
                             "21 right, 0 wrong", "damage        none"})
        EXPECT_NE(text.out.find(word), std::string::npos) << word << text.out;
    for (const char *wrong :
         {"", "--preset mp5 dvd.mp2", "--source a.wav -", "--trace t dvd.mp2", "--html dvd.mp2 dvd.mp2",
          "--html - --json dvd.mp2", "--trace t --html x.html dvd.mp2 low.mp2"})
        run(std::string("velainfo ") + wrong, 1);
    run("velainfo dvd.mp2 none.mp2", 2);
    EXPECT_NE(shell("velainfo --help").out.find("Exit codes"), std::string::npos);
}

TEST_F(info_test, the_source_is_found_at_its_place_and_more_bits_come_closer_to_it) {
    const auto sound = noise(2 * 60000);
    put("source.wav", wav(pcm(sound, 3), 2, 48000, 3));
    put("later.wav", wav(pcm({sound.begin() + 2 * 5000, sound.end()}), 2, 48000));
    put("other.wav", wav(pcm(noise(2 * 60000, 99)), 2, 48000));
    std::vector<double> ratios;
    for (const std::string options :
         {"--layer 2 --bitrate 128", "--layer 2 --bitrate 384", "--layer 1 --bitrate 448"}) {
        run("velaenc --quiet " + options + " later.wav x.mp2");
        const auto compared = json_of("--source source.wav x.mp2")["comparison"];
        // By hand: the filterbanks delay by 481 samples, and in Layer I the encoder looks back by 64 more.
        EXPECT_EQ(compared["offset"], 5000 - 481 - (options.starts_with("--layer 1") ? 64 : 0))
            << options;
        ratios.push_back(compared["snr"]);
    }
    EXPECT_TRUE(ratios[0] > 1 && ratios[1] > ratios[0] + 3 && ratios[2] > ratios[0])
        << testing::PrintToString(ratios);
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
    const double around_hole = json_of("--source source.wav hole.mp2", 3)["comparison"]["snr"];
    EXPECT_NEAR(around_hole, ratios[2], 0.5);
    // What is told of the whole is that of its frames.
    tools::comparison_totals sums;
    sums.worst_nmr = -1e9;
    double ratio = 0;
    std::array<double, 2> energy{};
    const auto x = get("x.mp2");
    const auto totals =
        tools::compare_with_source(path("x.mp2"), report_of({x.begin(), x.end()}), path("source.wav"),
                                   [&](const tools::compared_frame &frame) {
                                       ++sums.frames;
                                       for (int i = 0; i < 64; ++i) {
                                           const double nmr = frame.nmr[i / 32][i % 32];
                                           sums.worst_nmr = std::max(sums.worst_nmr, nmr);
                                           ratio += std::pow(10, nmr / 10) / 64;
                                           energy[0] += std::pow(10, frame.level[i / 32][i % 32] / 10);
                                           energy[1] += std::pow(10, frame.error[i / 32][i % 32] / 10);
                                       }
                                   });
    EXPECT_EQ(totals.frames, sums.frames);
    EXPECT_NEAR(totals.worst_nmr, sums.worst_nmr, 1e-3);
    EXPECT_NEAR(totals.mean_nmr, 10 * std::log10(ratio / static_cast<double>(sums.frames)), 1e-3);
    EXPECT_NEAR(totals.snr, 10 * std::log10(energy[0] / energy[1]), 1e-3);
    put("slow.wav", wav(pcm(sound), 2, 44100));
    put("six.wav", wav(pcm(sound), 6, 48000));
    put("silent.wav", wav(std::string(96000, '\0'), 2, 48000));
    put("silent.mp2", encoded("silent.wav"));
    for (const auto &[files, words] : {std::pair{"other.wav x.mp2", "does not seem to be the source"},
                                       {"slow.wav x.mp2", "should be the same"},
                                       {"six.wav x.mp2", "more than two channels"},
                                       {"silent.wav silent.mp2", "nothing to align"}})
        run(std::string("velainfo --source ") + files, 2, words);
}

} // namespace
} // namespace velaenc_test
