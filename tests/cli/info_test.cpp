// What velainfo says about streams: sound ones, damaged ones, other people's.
#include "host/encoding.hpp"
#include "info_workbench.hpp"
#include "velainfo/comparison.hpp"
#include "velainfo/timeline.hpp"

#include <cmath>
#include <random>

/// fuzz/info_fuzz.cpp: aborts on a fault.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace velaenc_test {
namespace {

bytes encoded_noise(const mp1a_test::stream &how, int frames) {
    return joined(mp1a_test::encode(how, how.pcm(frames * how.frame_samples())));
}

TEST(info, a_thousand_damaged_streams_hide_nothing_and_take_no_whole_frame_along) {
    std::mt19937 random(13);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
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
        const std::size_t frame = starts[2 + below(8)];
        const unsigned kind = i / 4 % 5;
        // Bytes are lost, or come in between, or a sector was never written or is another one's.
        std::size_t place = frame + below(starts[1]), size = 1 + below(200),
                    gone = kind == 2 ? 0 : size;
        bytes come(kind == 1 ? 0 : size);
        if (kind != 3) std::ranges::generate(come, random);
        if (kind == 0) { // a bit of the header, the CRC or the first allocations
            const std::size_t bit = below(8 * 9);
            place = frame + bit / 8, gone = 1;
            come = {static_cast<std::uint8_t>(stream[place] ^ 0x80 >> bit % 8)};
        }
        const auto at = stream.begin() + static_cast<std::ptrdiff_t>(place);
        stream.insert(stream.erase(at, at + static_cast<std::ptrdiff_t>(gone)), come.begin(),
                      come.end());
        const std::size_t moved = come.size() - gone; // which may be less than none
        std::vector<std::size_t> sound;
        for_each_piece(stream, [&](const tools::stream_piece &piece) {
            if (piece.is_frame && tools::parse_frame(piece.bytes).faults == 0)
                sound.push_back(piece.offset);
        });
        for (std::size_t f = 0; f < starts.size(); ++f) {
            const std::size_t end = f + 1 < starts.size() ? starts[f + 1] : original.size();
            const bool is_behind = starts[f] >= place + gone;
            const std::size_t here = starts[f] + (is_behind ? moved : 0);
            lost += (end <= place || is_behind) && !std::ranges::binary_search(sound, here);
        }
        if (i % 10 == 0) LLVMFuzzerTestOneInput(stream.data(), stream.size());
        const auto report = report_of(stream);
        ASSERT_FALSE(kind < 3 && report.is_sound());
        for (const auto &event : report.events) {
            // Bytes too many show at the end of the frame that they are in.
            EXPECT_LE(event.offset, place + 2 * starts[1] + std::max(gone, come.size()));
            EXPECT_GE(event.offset + 2 * starts[1], place);
        }
    }
    EXPECT_EQ(lost, 0);
}

TEST(info, a_picture_keeps_least_mean_and_greatest_values_however_long_it_is) {
    const auto panels_of = [](const std::vector<std::string> &rows, double lowest) {
        return std::vector{tools::panel{"", "", "", tools::panel::kind::lines, rows, lowest, 1, 0, 1}};
    };
    tools::timeline pictured(panels_of({"only"}, 0));
    for (const std::uint64_t number : {0u, 1000000u})
        pictured.add(number, std::vector<float>(1, 3));
    EXPECT_EQ(pictured.columns(), 3907u); // 256 frames each: 128 would make more than 4096
    pictured.limit_columns(100);
    EXPECT_EQ(pictured.columns(), 62u);
    tools::timeline two(panels_of({"upper", "lower"}, -20));
    const float none = std::nanf(""), values[4][2] = {{-1, none}, {-2, 5}, {-8, none}, {-10, 7}};
    for (unsigned i = 0; i < 4; ++i)
        two.add(i, values[i]);
    const auto data = [&] { return nlohmann::json::parse(two.json())[0]["data"]; };
    EXPECT_EQ(data(), "ExIMCv8Z/xs="); // 19 18 12 10, 255 25 255 27
    two.limit_columns(1);
    EXPECT_EQ(data(), "DxoKGRMb"); // 15 26, 10 25, 19 27
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
        bytes stream;
        for (const char kind : frames) {
            written_frame frame{.layer = layer, .mode = 3};
            frame.bitrate_index = layer == 1 ? 4 : kind == '+' ? 9 : 8;
            frame.padding = kind == '1' ? 1 : 0;
            const bytes next = kind == '.' ? bytes(1) : frame.write();
            stream.insert(stream.end(), next.begin(), next.end());
        }
        const auto report = report_of(stream);
        EXPECT_NEAR(report.padding.worst, worst, 1e-5) << frames;
        EXPECT_EQ(report.padding.is_exact(), worst <= 1) << frames;
        EXPECT_EQ(report.padded, std::ranges::count(frames, '1')) << frames;
    }
}

TEST_F(info_test, containers_tags_and_foreign_bytes_are_told_from_damage) {
    const std::string stream = encoded("--crc 48000.wav - | cat");
    // A tag says its length: 54 bytes behind the header of ten, 60 behind APE's of 32.
    const std::string id3 = std::string("ID3\4\0\0\0\0\0\x36", 10) + std::string(54, '\0'),
                      ape = "APETAGEX\xD0\7" + std::string("\0\0\x3C\0\0\0\0\0\0\0\0\0\0\xA0", 14)
                            + std::string(68, '\0'),
                      lyrics = "LYRICSBEGINwords000016LYRICS200", id3v1 = "TAG" + std::string(125, ' ');
    std::string riff = wav(stream, 2, 48000);
    riff[20] = 0x50; // WAVE_FORMAT_MPEG
    const auto event = [](const char *kind, bool damage, int offset, int length) {
        return "\"kind\":\"" + std::string(kind) + "\",\"damage\":" + (damage ? "true" : "false")
               + ",\"offset\":" + std::to_string(offset) + ",\"length\":" + std::to_string(length)
               + ",";
    };
    const struct {
        std::string bytes;
        int status;
        std::string word;
    } cases[] = {
        {stream, 0, "\"events\":[]"},
        {riff, 0, "\"container\":\"wav\",\"bytes\":14112"},
        {riff + "LIST" + little_endian(stream.size(), 4) + stream, 0,
         "\"container\":\"wav\",\"bytes\":14112"},
        {id3 + stream, 0, "bytes of a tag (ID3)"},
        {stream + ape + lyrics + id3v1, 0, event("trailing", false, 14112, 251)},
        {id3 + "x" + stream, 3, event("leading", true, 64, 1)},
        {stream + id3v1 + std::string(500, 'x'), 3, event("trailing", true, 14240, 500)},
        {stream + std::string(ape).replace(23, 1, 1, '\0'), 3,
         event("trailing", true, 14112, 92)}, // a footer in front
        {stream + ape.substr(0, 50), 3, "a tag (APETAGEX) of 92 bytes ends after 50"},
        {id3 + stream.substr(0, 600) + stream, 3, "a frame of 672 bytes ends after 600"},
        {stream.substr(0, 14000) + id3v1, 3, "a frame of 672 bytes ends after 560"},
        {id3 + stream + id3v1 + id3 + stream + id3v1, 3, event("joined", true, 14176, 192)},
        {riff.substr(0, riff.size() - 672), 3, "14112 bytes of sound, 672 are"},
        {std::string(riff).replace(24, 2, "\x44\xAC"), 3, "says 44100 Hz, its frames have 48000"},
        {std::string(riff).replace(22, 1, "\1"), 3, "says 1 channels"},
        {std::string(riff).replace(40, 4, 4, '\0'), 3, "there is no sound in it"},
        {std::string(riff).replace(4, 4, 4, '\xFF').replace(40, 4, 4, '\xFF'), 0, "\"events\":[]"},
        {"abc" + stream, 3, event("leading", true, 0, 3)},
        {stream + "abc", 3, event("trailing", true, 14112, 3)},
        {stream + encoded("--layer 1 48000.wav - | cat"), 0, "another kind of stream begins"},
        {stream.substr(0, stream.size() - 100), 3, "a frame of 672 bytes ends after 572"},
        {stream.substr(0, 1344) + "abcde" + stream.substr(1344), 3,
         "\"damage_count\":1,\"damaged_frames\":0,\"lost_bytes\":5"},
        {wav(stream, 2, 48000), 2, "WAV file of PCM"},
        {"\xFF\xFB\x90\x44" + std::string(2000, 'x'), 2, "MPEG Layer III"},
        {"\xFF\xFD\x04\x44" + std::string(2000, 'x'), 2, "free format"},
        {"sizemoov" + std::string(600, 'x'), 2, "is a QuickTime file"},
        {"sizemdat" + std::string(600, 'x'), 2, "is a QuickTime file"},
        {"timeG" + std::string(191, 'x') + "G", 2, "is an MPEG transport stream"},
        {"fLaC" + std::string(600, 'x'), 2, "it seems to be FLAC"},
        {"", 2, "is empty"},
        {std::string(5000, 'x'), 2, "no frame of MPEG audio"}};
    for (const auto &[content, status, word] : cases) {
        put("x", content);
        SCOPED_TRACE(word);
        for (const char *arguments : {"x", "- <x", "- < <(cat x)"}) {
            const auto result = run(std::string("velainfo --json ") + arguments, status);
            const std::string said = result.out + result.err;
            EXPECT_NE(said.find(word), std::string::npos) << said;
        }
    }
}

TEST_F(info_test, streams_in_containers_are_looked_at_track_by_track_as_if_they_were_bare) {
    run("velaenc --quiet --crc 48000.wav x.mp2 && velaenc --quiet --mode mono --bitrate 64 48000.wav "
        "y.mp2");
    const auto bare = json_of("x.mp2");
    // The sectors of a Video CD: headers of 24 bytes, a pack of the program stream, a check of four.
    using namespace std::string_literals;
    run("ffmpeg -v fatal -i x.mp2 -c copy -f vcd packs");
    const std::string packs = get("packs"), mark = "\0\0\1\xBA"s;
    std::string sectors;
    for (std::size_t at = 0, next = 0; at < packs.size(); at = next) {
        next = std::min(packs.find(mark, at + 1), packs.size());
        std::string pack = packs.substr(at, std::min<std::size_t>(next - at, 2324));
        pack.resize(2324 + 4);
        sectors += "\0"s + std::string(10, '\xFF') + std::string(13, '\0') + pack;
    }
    put("x.film", "RIFF" + little_endian(36 + sectors.size(), 4) + "CDXAfmt \x10\0\0\0"s
                      + std::string(16, '\0') + "data" + little_endian(sectors.size(), 4) + sectors);
    for (const std::string kind :
         {"vcd", "mpegts", "vob", "matroska", "avi", "mov", "mp4", "caf", "w64", "mxf"}) {
        if (kind == "mxf")
            run("gst-launch-1.0 -q filesrc location=x.mp2 ! mpegaudioparse ! mxfmux ! filesink "
                "location=x.film");
        else if (kind != "vcd")
            run("ffmpeg -v error -y -i x.mp2 -c copy -f " + kind + " x.film");
        auto said = json_of("x.film");
        EXPECT_EQ(said["container"], kind == "vob" ? "mpeg" : kind);
        EXPECT_EQ(said["track"], 0);
        for (const char *same : {"container", "track", "file"})
            said.erase(same);
        for (const auto &[name, value] : said.items())
            EXPECT_EQ(value, bare[name]) << kind << name;
        run("velainfo --diff x.mp2 x.film");
    }
    run("ffmpeg -v error -i x.mp2 -i y.mp2 -map 1 -map 0 -c copy two.ts");
    const auto both = run("velainfo --brief two.ts").out;
    EXPECT_NE(both.find("mono, 64 kbit/s, track 0 of an MPEG transport stream"), std::string::npos)
        << both;
    EXPECT_NE(both.find("stereo, 224 kbit/s, track 1 of"), std::string::npos) << both;
    run("velainfo --source 48000.wav two.ts");
    run("PATH=$(dirname $(command -v velainfo)); velainfo two.ts", 2,
        "ffmpeg -v error -nostdin -i 'two.ts' -map 0:a:0 -c copy -f data stream.mp2");
    put("ffmpeg", "#!/bin/sh\necho broken >&2; exit 1\n");
    run("chmod +x ffmpeg; PATH=.:$PATH velainfo two.ts", 2,
        "ffmpeg cannot take the stream out of two.ts: broken");
    run("ffmpeg -v error -i 48000.wav -c:a ac3 other.ts; velainfo other.ts", 2,
        "an MPEG transport stream");
    run("ffmpeg -v error -i 48000.wav -ar 44100 other.flv; velainfo other.flv", 2,
        "a Flash video file");
    run("velainfo --diff two.ts x.mp2", 2, "two.ts has 2 streams of MPEG audio, x.mp2 has 1");
}

TEST_F(info_test, output_that_does_not_arrive_is_no_success) {
    run("velaenc --quiet 48000.wav x.mp2 && for i in {1..300}; do cat x.mp2; done >long.mp2");
    for (const char *kind : {"", "--json", "--frames", "--brief", "--html -"}) {
        const std::string command = std::string("velainfo ") + kind + " x.mp2 >";
        run(command + "/dev/full", 4, "No space left");
        run(command + "&-", 4, "standard output");
    }
    // Who closes the pipe has seen enough, and needs no message.
    EXPECT_EQ(run("velainfo --frames long.mp2 | head -1", 4).err, "");
}

TEST_F(info_test, a_policy_is_held_against_every_header_and_says_where) {
    run("velaenc --quiet --preset dvd 48000.wav dvd.mp2; velaenc --quiet --preset dvd --mode mono"
        " --bitrate 112 48000.wav mono.mp2; velaenc --quiet --bitrate 224 --to-rate 44100 --crc "
        "48000.wav"
        " 44.mp2; cat dvd.mp2 mono.mp2 >two.mp2; cat dvd.mp2 44.mp2 >rates.mp2; mkdir -p d/e; cp "
        "two.mp2"
        " d/e/b.mp2; cp dvd.mp2 d/a.MPA; touch d/readme.txt; echo 'kbps=224 # as ordered' >policy");
    const struct {
        const char *arguments;
        int status;
        std::string broken; ///< each with the frame where it begins
    } cases[] = {
        {"--preset dvd dvd.mp2", 0, ""},
        {"--preset dvd two.mp2", 3, "21 The stream changes from Layer II, 48000 Hz, two channels to;"},
        {"--preset dvb rates.mp2", 3, "21 The stream changes;"},
        {"--expect 'rate=48000,layer=2,mode=stereo|joint,kbps=192..256,crc=yes,constant=yes' dvd.mp2",
         0, ""},
        {"--expect mode=stereo,kbps=224 two.mp2", 7,
         "21 mode is mono;21 kbps is 112 kbit/s, should be 224;"},
        {"--expect channels=2 --expect constant=yes two.mp2", 7,
         "21 channels is 1, should be 2;21 constant is no: kbps 224 becomes 112, mode stereo becomes "
         "mono;"},
        {"--expect rate=48000,crc=no dvd.mp2", 7, "0 crc is yes, should be no;"},
        {"--expect min-seconds=0.6,max-seconds=0.5 dvd.mp2", 7,
         "0 min-seconds is 0.5 s, should be 0.6;0 max-seconds is 0.5;"},
        {"--expect @policy two.mp2", 7, "21 kbps is 112;"},
        {"--expect 'layer=1|2,kbps=..112|224' --preset dvd two.mp2", 3, "21 The stream changes;"},
        {"--expect kbps=223+-1 dvd.mp2", 0, ""}};
    for (const auto &[arguments, status, broken] : cases) {
        const auto said = json_of(arguments, status)["broken"];
        EXPECT_EQ(said.size(), std::ranges::count(broken, ';')) << arguments << said;
        std::istringstream lines(broken);
        for (const auto &found : said) {
            std::string expected;
            std::getline(lines, expected, ';');
            const std::string line = found["frame"].dump() + " " + found["text"].get<std::string>();
            EXPECT_TRUE(line.starts_with(expected)) << arguments << ": " << line;
            EXPECT_EQ(found["offset"], found["frame"].get<int>() * 672);
        }
    }
    for (const char *wrong :
         {"bitrate=1", "kbps", "kbps=", "kbps=x", "kbps=2..1", "mode=sterio", "crc=1"})
        run(std::string("velainfo --expect ") + wrong + " dvd.mp2", 1, "should be");
    // Folders, lists, one line each, and the worst of all as the code.
    const auto brief = run("velainfo --brief --expect kbps=224 -r d", 7).out;
    EXPECT_EQ(brief,
              "sound       d/a.MPA: MPEG-1 Layer II, 48000 Hz, stereo, 224 kbit/s, 0:00.504\n"
              "unfit       d/e/b.mp2: MPEG-1 Layer II, 48000 Hz, stereo, 168.0 kbit/s on average, "
              "0:01.008; kbps is 112 kbit/s, should be 224\n");
    put("cut.mp2", get("dvd.mp2").substr(0, 1000));
    run("seq 100 | sed 's/.*/dvd.mp2/' >list; echo cut.mp2 >>list; echo none.mp2 >>list");
    std::istringstream lines(run("velainfo --brief --files-from list", 2).out);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_TRUE(line.starts_with(count < 100    ? "sound"
                                     : count == 100 ? "damaged"
                                                    : "unreadable"))
            << line;
    EXPECT_EQ(count, 102);
    const auto unreadable = json_of("none.mp2", 2);
    EXPECT_TRUE(unreadable["file"] == "none.mp2" && unreadable["error"].is_string()
                && unreadable["schema"] == 1);
}

TEST_F(info_test, numbers_of_a_policy_are_limits) {
    run("velaenc --quiet 48000.wav x.mp2");
    const auto said = json_of("--sound x.mp2"), measured = said["measured"];
    // A single number is the value, the most or the least that there may be.
    const std::pair<std::string, nlohmann::json> keys[] = {{"=rate", 48000},
                                                           {"=layer", 2},
                                                           {"=kbps", 224},
                                                           {"=channels", 2},
                                                           {">min-seconds", said["seconds"]},
                                                           {"<max-seconds", said["seconds"]},
                                                           {"<max-damage", 0},
                                                           {"=loudness", measured["loudness"]},
                                                           {"<range", measured["range"]},
                                                           {"<true-peak", measured["true_peak"]},
                                                           {"<silence", measured["longest_silence"]},
                                                           {"<clipped", measured["clipped"]},
                                                           {">correlation", measured["correlation"]},
                                                           {"<dead-channels", 0}};
    std::string policy;
    std::vector<std::string> expected, broken;
    for (const auto &[key, value] : keys) {
        const std::string less = std::to_string(value.get<double>() - 0.1),
                          more = (value > 0 ? "+" : "") + std::to_string(value.get<double>() + 0.1);
        const std::pair<std::string, bool> limits[] = {
            {less, key[0] == '>'},      {more, key[0] == '<'},
            {less + ".." + more, true}, {less + "..", true},
            {".." + more, true},        {more + "..", false},
            {".." + less, false},       {less + "|" + more, key[0] != '='}};
        for (const auto &[text, fits] : limits) {
            const std::string rule = key.substr(1) + "=" + text;
            policy += rule + ",";
            if (!fits) expected.push_back(rule);
        }
    }
    const auto judged = json_of("--expect '" + policy + "' x.mp2", 7)["broken"];
    for (const auto &each : judged)
        broken.push_back(each["rule"]);
    EXPECT_EQ(broken, expected);
    EXPECT_FALSE(json_of("--expect rate=48000,max-damage=0,min-seconds=0 x.mp2").contains("measured"));
}

TEST_F(info_test, a_fault_of_every_frame_is_one_place_and_hides_no_statistics) {
    std::string stream = encoded("--crc --bitrate 224 48000.wav - | cat");
    const auto sound = (put("x.mp2", stream), json_of("x.mp2"));
    for (std::size_t frame = 0; frame < stream.size(); frame += 672)
        stream[frame + 4] ^= 1;
    put("x.mp2", stream);
    auto wrong = json_of("x.mp2", 3);
    EXPECT_TRUE(wrong["damage_count"] == 1 && wrong["damaged_frames"] == 21
                && wrong["crc"]["wrong"] == 21);
    for (const char *field : {"header", "bits", "scfsi", "allocation", "padding"})
        EXPECT_EQ(wrong[field], sound[field]) << field;
    EXPECT_NE(run("velainfo x.mp2", 3).out.find("frames 0 to 20, 0.000 s, byte 0: CRC"),
              std::string::npos);
    // Once a frame is sound those before it are not believed.
    stream[20 * 672 + 4] ^= 1;
    stream[3] ^= 8; // the copyright bit of the first frame
    put("x.mp2", stream);
    wrong = json_of("x.mp2", 3);
    EXPECT_EQ(wrong["header"]["copyright"]["counts"].size(), 1u);
    // Two frames of 32 bytes and one byte more, more often than is listed.
    const std::string small = "\xFF\xFF\x14\xC0" + std::string(28, '\0');
    std::string many;
    for (int i = 0; i < 1002; ++i)
        many += small + small + "x";
    put("many.mp1", many);
    const std::string text = run("velainfo many.mp1", 3).out;
    EXPECT_NE(
        text.find(
            "1002 places, 0 frames, 1002 bytes outside of frames\n    frame 2, 0.016 s, byte 64: 1 "),
        std::string::npos);
    EXPECT_TRUE(text.ends_with("byte 64999: 1 bytes that belong to no frame\n    and 2 more\n"));
    // In WAV a frame's offset is the file's, not the stream's.
    run("velaenc --quiet 48000.wav x.wav");
    const auto base = get("x.wav").find("\xFF\xFD");
    EXPECT_NE(run("velainfo --frames x.wav").out.find("\n1 " + std::to_string(base + 672) + " 672 "),
              std::string::npos);
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
    EXPECT_TRUE(run("velainfo dvd.mp2").out.ends_with("\n  damage        none\n"));
    for (const char *wrong :
         {"", "--preset mp5 dvd.mp2", "--source a.wav -", "--trace t dvd.mp2", "--html dvd.mp2 dvd.mp2",
          "--html - --json dvd.mp2", "--trace t --html x.html dvd.mp2 low.mp2", "--diff dvd.mp2",
          "--diff dvd.mp2 low.mp2 dvd.mp2", "--diff - dvd.mp2", "--diff --sound dvd.mp2 low.mp2",
          "--diff -r dvd.mp2 low.mp2"})
        run(std::string("velainfo ") + wrong, 1);
    const std::string both = run("velainfo dvd.mp2 none.mp2 2>&1", 2).out;
    EXPECT_NE(both.find("damage        none\nvelainfo: cannot read none.mp2"), std::string::npos)
        << both;
    run("velainfo dvd.mp2 --files-from .", 2, "cannot read the list");
    run("velainfo --diff dvd.mp2 none.mp2", 2, "cannot read none.mp2");
    // The last one counts, and 23 frames are 15456 bytes in 0.552 s, a quotient that is no whole number in binary.
    run("velainfo --preset vcd --preset dvd dvd.mp2 && cat dvd.mp2 dvd.mp2 | head -c 15456 >some.mp2");
    EXPECT_NE(run("velainfo --json some.mp2").out.find("\"average_kbps\":224.0,"), std::string::npos);
    EXPECT_NE(shell("velainfo --help").out.find("Exit codes"), std::string::npos);
}

} // namespace
} // namespace velaenc_test
