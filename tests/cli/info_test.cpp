// What velainfo says about streams: sound ones, damaged ones, other people's.
#include "host/encoding.hpp"
#include "parser/bit_reader.hpp"
#include "parser/standard_tables.hpp"
#include "velainfo/stream_report.hpp"
#include "velainfo/synthesis.hpp"
#include "velainfo/timeline.hpp"
#include "workbench.hpp"

#include <cmath>
#include <nlohmann/json.hpp>
#include <random>

/// fuzz/info_fuzz.cpp: aborts on a fault.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace velaenc_test {
namespace {

using report_field = tools::stream_report::field;
using bytes = std::vector<std::uint8_t>;

tools::stream_report report_of(const bytes &stream) {
    tools::report_builder builder("stream", 0);
    for_each_piece(stream, [&](const tools::stream_piece &piece) { builder.add(piece); });
    return builder.finish("");
}

bytes encoded_noise(const mp1a_test::stream &how, int frames) {
    return joined(mp1a_test::encode(how, how.pcm(frames * how.frame_samples())));
}

TEST(info, every_setting_of_ours_is_reported_as_it_was_asked_for) {
    for (int i = 0; i < 2 * 4 * 14 * 3; ++i) {
        mp1a_test::stream how{1 + i % 2, i / 2 % 4, 1 + i / 8 % 14, i % 3 % 2,
                              std::array{32000, 44100, 48000}[i / 112]};
        how.flags = i % 24 < 16 ? i % 24 : i % 24 + 8;
        if (how.bitrate < (how.channels() == 2 ? 4 : how.layer == 1 ? 3 : 1)) continue;
        const bytes stream = encoded_noise(how, 40);
        const auto report = report_of(stream);
        SCOPED_TRACE(testing::PrintToString(std::tuple{how.layer, how.mode, how.bitrate, how.rate}));
        const std::pair<report_field, int> expected[] = {
            {report_field::version, 1},
            {report_field::layer, how.layer},
            {report_field::crc, how.crc},
            {report_field::kbps, tools::bitrate_of(how.layer, how.bitrate)},
            {report_field::rate, how.rate},
            {report_field::private_bit, how.flags & 1},
            {report_field::copyright, how.flags >> 1 & 1},
            {report_field::original, how.flags >> 2 & 1},
            {report_field::emphasis, how.flags >> 3}};
        for (const auto &[which, value] : expected)
            EXPECT_EQ(report.values[which], (tools::value_counts{{value, 40}})) << which;
        for (const auto &[mode, count] : report.values[report_field::mode])
            EXPECT_TRUE(mode == how.mode || (how.mode == 1 && mode == 0)) << mode;
        EXPECT_TRUE(report.is_sound() && report.padding.is_exact());
        EXPECT_TRUE(report.frames == 40 && report.bytes == stream.size()
                    && report.crc_right == 40u * how.crc);
        const auto &b = report.bits;
        EXPECT_EQ(b.header + b.crc + b.allocation + b.scfsi + b.scalefactors + b.samples + b.unused,
                  8 * stream.size());
    }
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

/// A legal Layer II frame of the lower rates, or of MPEG-1: random allocation, scale factors and codes.
bytes random_frame(int version, int rate_index, int mode, int bitrate_index, std::mt19937 &random) {
    const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    std::string bits;
    const auto put = [&](int value, int n) {
        for (int i = n; i-- > 0;)
            bits += static_cast<char>('0' + (value >> i & 1));
    };
    put(0xFFF, 12), put(2 - version, 1), put(2, 2), put(1, 1), put(bitrate_index, 4),
        put(rate_index, 2);
    put(0, 2), put(mode, 2), put(0, 6);
    const int rate = std::array{44100, 48000, 32000}[static_cast<unsigned>(rate_index)] / version;
    const int kbps = tools::bitrate_of(2, bitrate_index, version), channels = mode == 3 ? 1 : 2;
    const char table = tools::table_of(rate, kbps / channels);
    int steps[60] = {};
    for (int i = 0; i < tools::sblimit_of(2, table) * channels; ++i) {
        const auto &row = tools::quantizers_of(2, table, i / channels);
        const int n = i < 24 ? below(std::min(static_cast<int>(row.steps.size()), 7)) : 0;
        put(n, row.alloc_bits);
        steps[i] = row.steps[static_cast<unsigned>(n)];
    }
    for (const int used : steps)
        if (used > 0) put(2, 2); // one scale factor for all parts
    for (const int used : steps)
        if (used > 0) put(6 + below(50), 6);
    for (int granule = 0; granule < 12; ++granule)
        for (const int used : steps) {
            if (used == 0) continue;
            const bool grouped = tools::is_grouped(2, used);
            for (int i = 0; i < (grouped ? 1 : 3); ++i)
                put(below(grouped ? used * used * used : used), tools::code_bits_of(2, used));
        }
    bits.resize(8 * static_cast<std::size_t>(144000 * kbps / rate), '0');
    bytes frame;
    for (std::size_t i = 0; i < bits.size(); i += 8)
        frame.push_back(static_cast<std::uint8_t>(std::stoi(bits.substr(i, 8), nullptr, 2)));
    return frame;
}

TEST(info, a_long_gap_in_the_numbers_of_frames_hides_nothing_behind_it_and_takes_no_room) {
    tools::timeline pictured({{.name = "", .title = "", .unit = "", .rows = {"only"}}});
    for (const std::uint64_t number : {0u, 1000000u})
        pictured.add(number, std::vector<float>(1, 3));
    EXPECT_EQ(pictured.columns(), 3907u); // 256 frames each: 128 would make more than 4096
    pictured.limit_columns(100);
    EXPECT_EQ(pictured.columns(), 62u);
}

class info_test : public workbench {
  protected:
    info_test() { put("48000.wav", wav(pcm(noise(48000)), 2, 48000)); }

    nlohmann::json json_of(const std::string &arguments, int status = 0) const {
        return nlohmann::json::parse(run("velainfo --json " + arguments, status).out, nullptr, false);
    }
};

TEST_F(info_test, other_decoders_hear_what_the_parser_reads_at_every_rate) {
    std::mt19937 random(3);
    for (int i = 0; i < 2 * 3 * 2; ++i) {
        const int version = 1 + i % 2, rate_index = i / 2 % 3, mode = i / 6 * 3;
        bytes stream;
        for (int f = 0; f < 6; ++f) {
            const bytes frame = random_frame(version, rate_index, mode, version == 1 ? 11 : 14, random);
            stream.insert(stream.end(), frame.begin(), frame.end());
        }
        put("x.mp2", {stream.begin(), stream.end()});
        const auto decoded = heard("x.mp2");
        std::vector<float> expected;
        tools::synthesis_filterbank banks[2];
        for_each_piece(stream, [&](const tools::stream_piece &piece) {
            tools::sample_codes codes;
            tools::frame_subbands subbands;
            const auto frame = tools::parse_frame(piece.bytes, &codes);
            ASSERT_EQ(frame.faults, 0u) << tools::fault_text(frame.faults);
            tools::requantize(frame, codes, subbands);
            for (int step = 0; step < 36; ++step) {
                float sound[2][32];
                for (int ch = 0; ch < frame.channels(); ++ch)
                    banks[ch].step(subbands[ch][step], sound[ch]);
                for (int k = 0; k < 32 * frame.channels(); ++k)
                    expected.push_back(
                        std::clamp(sound[k % frame.channels()][k / frame.channels()], -1.0F, 1.0F));
            }
        });
        ASSERT_EQ(decoded.size(), expected.size()) << i;
        float worst = 0, loudest = 0;
        for (std::size_t k = 0; k < expected.size(); ++k) {
            worst = std::max(worst, std::fabs(decoded[k] - expected[k]));
            loudest = std::max(loudest, std::fabs(decoded[k]));
        }
        EXPECT_TRUE(worst < 2e-4F && loudest > 0.05F)
            << "version " << version << ", rate " << rate_index << ": " << worst;
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
        {"in WAV", riff, 0, "\"container\":\"wav\""},
        {"tag before", id3 + stream, 0, "bytes of a tag (ID3)"},
        {"tag behind", stream + "TAG" + std::string(125, ' '), 0,
         "\"kind\":\"trailing\",\"damage\":false"},
        {"bytes before", "abc" + stream, 3,
         "\"kind\":\"leading\",\"damage\":true,\"offset\":0,\"length\":3"},
        {"bytes behind", stream + "abc", 3, "\"kind\":\"trailing\",\"damage\":true"},
        {"another stream behind", stream + encoded("--layer 1 48000.wav - | cat"), 0,
         "another kind of stream begins"},
        {"cut", stream.substr(0, stream.size() - 100), 3, "a frame of 672 bytes ends after 572"},
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
    // Two frames of 448 bytes that are gone do not move those behind them.
    put("hole.mp2", get("x.mp2").replace(40 * 448, 2 * 448, 2 * 448, '\0'));
    const double around_hole = json_of("--source source.wav hole.mp2", 3)["comparison"]["snr"];
    EXPECT_NEAR(around_hole, ratios[2], 0.5);
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
