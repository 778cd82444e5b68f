// What velainfo says about streams: sound ones, damaged ones, other people's.
#include "host/encoding.hpp"
#include "velainfo/comparison.hpp"
#include "velainfo/stream_report.hpp"
#include "velainfo/synthesis.hpp"
#include "velainfo/timeline.hpp"
#include "workbench.hpp"
#include "written_frame.hpp"

#include <cmath>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

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

/// Numbers to six digits behind the point.
nlohmann::json rounded(nlohmann::json value) {
    if (value.is_structured())
        for (auto &part : value)
            part = rounded(part);
    return value.is_number_float() ? nlohmann::json(std::round(value.get<double>() * 1e6) / 1e6)
                                   : value;
}

/// What --json says of a stream, as its frames were written.
struct expected_report {
    nlohmann::json frames = nlohmann::json::array();
    std::map<std::string, std::map<nlohmann::json, int>> counts;
    std::map<std::string, int> bits;
    std::map<int, int> bounds;
    int scfsi[4] = {}, bytes = 0, padded = 0, sblimit = 0;
    double sample_bits[2][32] = {};

    void add(const written_frame &f) {
        const nlohmann::json on = true, off = false;
        const char *modes[] = {"stereo", "joint stereo", "dual channel", "mono"};
        const char *emphases[] = {"none", "50/15", "reserved", "j17"};
        const std::pair<const char *, nlohmann::json> header[] = {{"version", f.version},
                                                                  {"layer", f.layer},
                                                                  {"crc", f.crc == 1},
                                                                  {"kbps", f.kbps()},
                                                                  {"rate", f.rate()},
                                                                  {"private", f.private_bit == 1},
                                                                  {"mode", modes[f.mode]},
                                                                  {"copyright", f.copyright == 1},
                                                                  {"original", f.original == 1},
                                                                  {"emphasis", emphases[f.emphasis]}};
        for (const auto &[name, value] : header)
            ++counts[name][value];
        const int rest = 8 * f.size() - 32 - 16 * f.crc - f.allocation_bits - f.scfsi_bits
                         - f.factor_bits - f.sample_bits;
        const nlohmann::json here{{"header", 32},
                                  {"crc", 16 * f.crc},
                                  {"allocation", f.allocation_bits},
                                  {"scfsi", f.scfsi_bits},
                                  {"scalefactors", f.factor_bits},
                                  {"samples", f.sample_bits},
                                  {"rest", rest}};
        for (const auto &[name, count] : here.items())
            bits[name != "rest" ? name : f.ancillary ? "ancillary" : "unused"] += count.get<int>();
        nlohmann::json allocation, factors;
        for (int ch = 0; ch < f.channels(); ++ch) {
            allocation.push_back(std::vector(f.allocation[ch], f.allocation[ch] + f.sblimit()));
            factors.push_back(nlohmann::json::array());
            for (int part = 0; part < f.parts(); ++part)
                factors.back().push_back(
                    std::vector(f.factors[ch][part], f.factors[ch][part] + f.sblimit()));
            for (int sb = 0; sb < f.sblimit(); ++sb) {
                const int steps = f.steps[ch][sb];
                if (steps == 0) continue;
                const bool grouped = f.layer == 2 && (steps == 3 || steps == 5 || steps == 9);
                sample_bits[ch][sb] += grouped ? (steps == 3   ? 5
                                                  : steps == 5 ? 7
                                                               : 10)
                                                     / 3.0
                                               : std::log2(steps + 1);
                if (f.layer == 2) ++scfsi[f.scfsi[ch][sb]];
            }
        }
        const auto samples = f.layer == 1 ? 384.0 : 1152.0;
        nlohmann::json frame{{"frame", frames.size()},
                             {"offset", bytes},
                             {"bytes", f.size()},
                             {"seconds", samples * static_cast<double>(frames.size()) / f.rate()},
                             {"kbps", f.kbps()},
                             {"padding", f.padding},
                             {"mode", modes[f.mode]},
                             {"bound", f.bound()},
                             {"bits", here},
                             {"allocation", allocation},
                             {"scalefactors", factors},
                             {"faults", nlohmann::json::array()}};
        if (f.crc == 1) frame["crc_right"] = true;
        frames.push_back(frame);
        if (f.mode == 1) ++bounds[f.bound()];
        bytes += f.size(), padded += f.padding, sblimit = std::max(sblimit, f.sblimit());
    }

    nlohmann::json summary(const written_frame &any) const {
        const auto n = frames.size();
        const double seconds = (any.layer == 1 ? 384.0 : 1152.0) * static_cast<double>(n) / any.rate();
        nlohmann::json header, allocation, list = nlohmann::json::array();
        for (const auto &[name, values] : counts) {
            header[name] = {{"constant", values.size() == 1}, {"counts", nlohmann::json::array()}};
            for (const auto &[value, count] : values)
                header[name]["counts"].push_back({{"value", value}, {"frames", count}});
            std::sort(header[name]["counts"].begin(), header[name]["counts"].end());
        }
        for (int ch = 0; ch < any.channels(); ++ch)
            for (int sb = 0; sb < sblimit; ++sb)
                allocation[static_cast<unsigned>(ch)].push_back(sample_bits[ch][sb]
                                                                / static_cast<double>(n));
        for (const auto &[bound, count] : bounds)
            list.push_back({{"bound", bound}, {"frames", count}});
        auto all_bits = bits;
        all_bits.insert({{"ancillary", 0}, {"unused", 0}});
        return {{"bytes", bytes},
                {"frames", n},
                {"seconds", seconds},
                {"average_kbps", bytes / seconds / 125},
                {"joint", counts.at("mode").contains("joint stereo")},
                {"header", header},
                {"crc", {{"right", any.crc == 1 ? n : 0}, {"wrong", 0}}},
                {"bounds", list},
                {"bits", all_bits},
                {"scfsi", scfsi},
                {"allocation", allocation},
                {"faults", nlohmann::json::object()},
                {"sound", true},
                {"damaged_frames", 0},
                {"lost_bytes", 0},
                {"events", nlohmann::json::array()}};
    }
};

/// The sound of a stream by the parser and the synthesis here, interleaved.
std::vector<float> synthesized(const bytes &stream) {
    std::vector<float> sound;
    tools::synthesis_filterbank banks[2];
    for_each_piece(stream, [&](const tools::stream_piece &piece) {
        tools::sample_codes codes;
        tools::frame_subbands subbands;
        const auto frame = tools::parse_frame(piece.bytes, &codes);
        EXPECT_EQ(frame.faults, 0u) << tools::fault_text(frame.faults);
        tools::requantize(frame, codes, subbands);
        for (int step = 0; step < 12 * frame.parts; ++step) {
            float out[2][32];
            for (int ch = 0; ch < frame.channels(); ++ch)
                banks[ch].step(subbands[ch][step], out[ch]);
            for (int k = 0; k < 32 * frame.channels(); ++k)
                sound.push_back(out[k % frame.channels()][k / frame.channels()]);
        }
    });
    return sound;
}

TEST_F(info_test, every_field_is_reported_as_it_was_written_and_other_programs_agree) {
    std::mt19937 random(3);
    for (int i = 0; i < 2 * 2 * 3 * 2; ++i) {
        written_frame f{.version = 1 + i % 2, .layer = 1 + i / 2 % 2, .crc = (i + i / 3) % 2};
        expected_report expected;
        bytes stream;
        for (int k = 0; k < 2 * 14; ++k) {
            written_frame next{.version = f.version, .layer = f.layer, .crc = f.crc};
            next.rate_index = i / 4 % 3, next.bitrate_index = 1 + k % 14;
            // ffmpeg looks for two equal headers first.
            const auto any = [&](int n) { return k < 2 ? 0 : static_cast<int>(random() % n); };
            next.mode = i / 12 == 1 ? 3 : any(3);
            // Two channels of Layer I need room for their allocation.
            if (next.layer == 1 && next.mode != 3 && next.kbps() < 128) next.bitrate_index = 13;
            if (next.mode == 1) next.mode_extension = static_cast<int>(random() % 4);
            for (int *bit : {&next.private_bit, &next.copyright, &next.original})
                *bit = any(2);
            next.padding = next.rate_index == 0 ? static_cast<int>(random() % 2) : 0;
            next.emphasis = std::array{0, 1, 3}[static_cast<unsigned>(any(3))];
            next.ancillary = k % 5 == 4;
            const bytes written = next.write(random);
            stream.insert(stream.end(), written.begin(), written.end());
            expected.add(f = next);
        }
        SCOPED_TRACE(testing::PrintToString(std::tuple{f.version, f.layer, f.rate(), f.mode}));
        put("x.mp2", {stream.begin(), stream.end()});
        std::istringstream lines(run("velainfo --json --frames x.mp2").out);
        std::string line;
        for (const auto &frame : expected.frames) {
            auto said = rounded(nlohmann::json::parse((std::getline(lines, line), line)));
            said.erase("file");
            ASSERT_EQ(said, rounded(frame));
        }
        const auto said = rounded(nlohmann::json::parse((std::getline(lines, line), line)));
        const auto summary = rounded(expected.summary(f));
        for (const auto &[name, value] : summary.items()) {
            auto compared = said[name];
            if (name == "header") {
                for (auto &field : compared) {
                    field.erase("value");
                    std::sort(field["counts"].begin(), field["counts"].end());
                }
            }
            EXPECT_EQ(compared, value) << name;
        }
        // ffprobe: where its packets are; ffmpeg: what is in them.
        const auto packets =
            shell("ffprobe -v error -f mp3 -show_entries packet=pos,size -of csv=p=0 x.mp2").out;
        std::string positions;
        for (const auto &frame : expected.frames)
            positions += frame["bytes"].dump() + "," + frame["offset"].dump() + "\n";
        EXPECT_EQ(packets, positions);
        const auto decoded = heard("x.mp2"), here = synthesized(stream);
        ASSERT_EQ(decoded.size(), here.size());
        float worst = 0, loudest = 0;
        for (std::size_t k = 0; k < here.size(); ++k) {
            worst = std::max(worst, std::fabs(decoded[k] - std::clamp(here[k], -1.0F, 1.0F)));
            loudest = std::max(loudest, std::fabs(decoded[k]));
        }
        EXPECT_TRUE(worst < 2e-4F && loudest > 0.05F) << worst << " " << loudest;
    }
}

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
