// Input of every kind, through files and pipes, whole and damaged.
#include "common/live_input.hpp"
#include "input/open_pcm.hpp"
#include "workbench.hpp"

#include <csignal>
#include <sndfile.h>

namespace velaenc_test {
namespace {

struct container {
    const char *name;
    int format; ///< as libsndfile knows it
    bool chunks = true;
    bool lossless = true;
};

constexpr container containers[] = {
    {"a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
    {"b.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24},
    {"c.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
    {"x.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16},
    {"d.wav", SF_FORMAT_WAV | SF_FORMAT_DOUBLE},
    {"a.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
    {"a.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
    {"b.w64", SF_FORMAT_W64 | SF_FORMAT_FLOAT},
    {"a.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
    {"a.au", SF_FORMAT_AU | SF_FORMAT_PCM_16},
    {"a.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_24},
    {"s.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16},
    {"a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, false},
    {"b.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, false},
    {"a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, false, false},
    {"a.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, false, false},
};

class input_test : public workbench {
  protected:
    static constexpr std::size_t instants = 40000; // 34.7 frames, and more than one block of any format
    const std::vector<std::int16_t> samples_ = noise(2 * instants);

    input_test() {
        for (const auto &kind : containers)
            write(kind.name, kind.format, samples_, 2);
    }
};

TEST_F(input_test, every_container_gives_the_same_stream_from_a_file_and_from_a_pipe) {
    put("raw", pcm(samples_));
    const auto expected = encoded("--raw --rate 48000 --channels 2 --format s16 raw");
    ASSERT_EQ(frames_of(expected).size(), 35u);
    run("ffmpeg -v error -i c.wav -c:a pcm_f32le f.w64 && ffmpeg -v error -i a.wav -f voc a.voc");
    for (const char *name : {"f.w64", "a.voc"}) // whose floats and blocks libsndfile does not see
        EXPECT_TRUE(encoded(name) == expected) << name;
    run("ffmpeg -v error -i a.wav -c:a libmp3lame mp3.wav && velaenc mp3.wav -");
    for (const auto &kind : containers) {
        const std::string name = kind.name;
        const auto stream = encoded(name);
        EXPECT_EQ(frames_of(stream).size(), 35u) << name;
        EXPECT_TRUE(stream == expected || !kind.lossless) << name;
        // Whoever starts late does not read what comes before.
        if (kind.lossless) {
            const auto source = tools::open_pcm(tools::open_input(path(name)), {});
            ASSERT_TRUE(source->seek(instants - 3)) << name;
            EXPECT_EQ(source->next_block().size(), 3 * source->shape().instant_bytes()) << name;
        }
        for (const char *input : {"cat ", "(head -c 7; sleep 0.02; cat) < "})
            EXPECT_TRUE(shell(input + name + " | velaenc - -").out == stream) << input << name;
        EXPECT_TRUE(shell("velaenc /dev/stdin < " + name).out == stream) << name;
    }
}

TEST_F(input_test, a_file_without_its_end_is_noticed_and_encoded_on_request) {
    for (const auto &kind : containers) {
        const std::string name = kind.name, whole = get(name);
        put(name, whole.substr(0, whole.size() * 3 / 4));
        expect_failure("velaenc " + name + " out.mp2", 2, "truncated");
        const auto rest =
            run("velaenc --ignore-length " + name + " -", 0, "note: " + name + " is truncated");
        EXPECT_NEAR(static_cast<double>(frames_of(rest.out).size()), 26, kind.chunks ? 1 : 9) << name;
        // What the writer to a pipe promises is often a guess.
        const auto piped = run("cat " + name + " | velaenc - -", kind.chunks ? 0 : 2, "truncated");
        EXPECT_TRUE(piped.out == rest.out || !kind.chunks) << name;
    }
}

TEST_F(input_test, sound_ends_where_its_size_says_and_with_the_input_where_that_is_not_known) {
    const auto &bytes = little_endian;
    const struct {
        const char *name;
        std::size_t at, replaced;
        std::string bytes;
        const char *note = "";
    } cases[] = {
        {"a.wav", 44 + 4 * instants, 0, "LIST" + bytes(16, 4) + std::string(16, 'x')},
        {"a.wav", 40, 4, bytes(0xFFFFFFFF, 4)}, // ffmpeg
        {"a.wav", 40, 4, bytes(0x7FFFEFFC, 4)}, // SoX, 24 bits
        {"a.wav", 40, 4, bytes(0x7FFF0000, 4)}, // GStreamer
        {"d.wav", 88, 4, bytes(0x7FFFF000, 4)},
        {"a.wav", 4, 40, bytes(0, 4) + get("a.wav").substr(8, 32) + bytes(0, 4)},
        {"a.wav", 4, 40, bytes(36, 4) + get("a.wav").substr(8, 32) + bytes(0, 4)}, // of no sound yet
        {"a.aiff", 42, 4, bytes(0x0800007F, 4)},                                   // SoX
        {"a.rf64", 20, 16, bytes(0, 16)},                                          // ffmpeg
        {"a.rf64", 28, 8, bytes(~0ull, 8)},
        {"a.w64", 96, 8, bytes(~0ull, 8)}, // ffmpeg
        {"a.w64", 96, 8, bytes(0, 8)},
        {"a.w64", 104 + 4 * instants, 0,
         "list" + std::string(12, 'x') + bytes(24 + 16, 8) + std::string(16, 'x')},
        {"a.au", 8, 4, bytes(0xFFFFFFFF, 4)},
        {"s.caf", 4084, 8, bytes(~0ull, 8)}, // ffmpeg
    };
    const auto expected = encoded("a.wav");
    for (const auto &each : cases) {
        const std::string original = get(each.name);
        put("piped", std::string(original).replace(each.at, each.replaced, each.bytes));
        EXPECT_TRUE(encoded("piped") == expected) << each.name << each.at;
        EXPECT_TRUE(shell("cat piped | velaenc - -").out == expected) << each.name << each.at;
    }
    expect_failure("cat a.wav a.wav | velaenc - out.mp2", 2, "another WAV file behind");
    put("odd.wav",
        get("a.wav").insert(12, "LIST" + bytes(3, 4) + "odd" + bytes(0, 1)).substr(0, 160000));
    expect_failure("velaenc odd.wav out.mp2", 2, "promises 56 more bytes");
    // Behind an odd number of bytes comes another one.
    put("raw", pcm(noise(4001), 3));
    const auto padded = encoded("--raw --rate 48000 --channels 1 --format s24 raw");
    put("padded.wav", wav(get("raw"), 1, 48000, 3) + bytes(0, 1) + "LIST" + bytes(4, 4) + "junk");
    for (const std::string command :
         {"cat padded.wav | velaenc - -", "velaenc --ignore-length padded.wav -"})
        EXPECT_TRUE(run(command).out == padded) << command;
    put("rest.wav", wav(pcm(samples_) + "xyz", 2, 48000));
    EXPECT_TRUE(run("velaenc rest.wav -", 0, "the last 3 of 4 bytes are dropped").out == expected);
    // A size that is too small: what follows is no chunk, so it is sound.
    put("short.wav", get("a.wav").replace(40, 4, bytes(4000, 4)));
    EXPECT_EQ(frames_of(run("velaenc short.wav -", 0, "bytes behind its sound").out).size(), 1u);
    for (const std::string command :
         {"cat short.wav | velaenc - -", "velaenc --ignore-length short.wav -"})
        EXPECT_TRUE(run(command, 0, "goes on where its header ends it").out == expected) << command;
    // A size that has wrapped is right but for whole times 4 GiB.
    put("long.wav", get("a.wav"));
    std::filesystem::resize_file(path("long.wav"), 44 + 4 * instants + (std::uint64_t{2} << 32) + 99);
    std::string note;
    const auto source = tools::open_pcm(tools::open_input(path("long.wav")),
                                        {.on_note = [&](const std::string &text) { note += text; }});
    EXPECT_EQ(source->length(), instants + (std::uint64_t{2} << 30));
    EXPECT_NE(note.find("32 bits"), std::string::npos) << note;
    put("long.aiff", get("a.aiff"));
    std::filesystem::resize_file(path("long.aiff"), std::uint64_t{5} << 30);
    expect_failure("velaenc long.aiff out.mp2", 2, "32 bits");
    // All four bytes of the rate count.
    std::string fast = get("a.wav");
    fast[27] = 1;
    put("rate.wav", fast);
    run("velaenc rate.wav -", 0, "resampling 16825216 Hz");
}

TEST_F(input_test, input_that_is_no_audio_is_named_for_what_it_is) {
    put("empty", "");
    put("text", "This is no audio at all, just a line of text that happens to be here.\n");
    put("silent.wav", wav("", 2, 48000));
    expect_failure("velaenc missing.wav out.mp2", 2, "missing.wav: No such file");
    expect_failure("velaenc . out.mp2", 2, "folder");
    expect_failure("velaenc $'\\e[2J\\302\\233\\377\\303\\244' out.mp2", 2,
                   "\\x1B[2J\\xC2\\x9B\\xFF\u00e4: No");
    expect_failure("velaenc empty out.mp2", 2, "empty is empty (0 bytes)");
    expect_failure("velaenc - out.mp2", 2, "standard input is empty");
    expect_failure("cat empty | velaenc - out.mp2", 2, "standard input is empty");
    expect_failure("velaenc text out.mp2", 2, "audio file is needed");
    expect_failure("cat text | velaenc - out.mp2", 2, "audio file is needed");
    expect_failure("velaenc silent.wav out.mp2", 2, "no samples");
    expect_failure("cat silent.wav | velaenc - out.mp2", 2, "no samples");
    expect_failure("cat a.flac | TMPDIR=none velaenc - out.mp2", 3, "set TMPDIR");
}

TEST_F(input_test, damage_inside_a_compressed_file_is_noticed) {
    const auto flipped = [](std::string file, std::size_t at) {
        file[at] = static_cast<char>(file[at] ^ 0x10);
        return file;
    };
    const std::string ogg = get("a.ogg");
    std::string flac = get("a.flac");
    flac[21] = static_cast<char>(flac[21] & 0xF0); // no number of samples
    flac.replace(22, 4, 4, '\0');
    // Silence of Layer III by hand: 128 kbit/s at 48 kHz, and a tag that tells the number of bytes.
    std::string frame("\xFF\xFB\x94", 3), mp3;
    frame.resize(384);
    for (int i = 0; i < 12; ++i)
        mp3 += frame;
    std::string tagged = mp3, counted = mp3, frames = mp3;
    tagged.replace(36, 12, std::string("Info\0\0\0\2\0\0\x12\0", 12));
    counted.replace(36, 16, std::string("Xing\0\0\0\3\0\0\0\x0C\0\0\x12\0", 16));
    frames.replace(36, 12, std::string("Xing\0\0\0\1\0\0\x12\0", 12));
    const std::string id3 = std::string("ID3\3\0\0\0\0\2\5", 10) + std::string(2 * 128 + 5, '\0');
    const std::string ape = "APETAGEX" + little_endian(2000, 4) + little_endian(8 + 32, 4)
                            + little_endian(1, 4) + little_endian(1u << 31, 4) + std::string(8, '\0'),
                      tags = ape + "12345678" + ape + "TAG" + std::string(125, ' ');
    const struct {
        std::string name, whole, damaged;
        int status = 2;
    } cases[] = {
        {"flip.ogg", ogg, flipped(ogg, ogg.size() / 2)},
        {"page.ogg", ogg, ogg.substr(0, ogg.rfind("OggS"))},
        {"chain.ogg", ogg, ogg + ogg},
        {"chain.wav", get("a.wav"), get("a.wav") + get("a.wav")},
        {"chain.aiff", get("a.aiff"), get("a.aiff") + get("a.aiff")},
        {"flip.flac", flac, flipped(flac, flac.size() / 2)},
        {"half.flac", flac, flac.substr(0, flac.size() / 2)},
        {"tags.flac", flac + tags, flac.substr(0, flac.size() / 2) + tags},
        {"tags.ogg", ogg + tags, ogg.substr(0, ogg.rfind("OggS")) + tags},
        {"tag.mp3", tagged, tagged.substr(0, 2000)},
        {"both.mp3", counted, counted.substr(0, 2000)},
        {"joined.mp3", tagged, tagged + id3 + tagged},
        {"twice.mp3", tagged, tagged + tagged},
        {"named.mp3", id3 + tagged, id3 + tagged.substr(0, tagged.size() - 100)},
        {"frames.mp3", frames, frames.substr(0, 2000), 0}, // their number does not tell the bytes
        {"plain.mp3", mp3, mp3.substr(0, 2000), 0},        // nothing tells that it was longer
    };
    for (const auto &[name, whole, damaged, status] : cases) {
        put(name, whole);
        run("velaenc " + name + " -");
        put(name, damaged);
        const bool is_second = damaged.starts_with(whole), is_cut = name.ends_with("mp3");
        run("velaenc " + name + " /dev/null", status,
            is_second               ? "from byte " + std::to_string(whole.size()) + " on"
            : is_cut && status == 2 ? std::to_string(whole.size() - damaged.size()) + " more bytes"
                                    : "");
        run("velaenc --ignore-length " + name + " -");
    }
}

TEST_F(input_test, reads_that_fail_are_told_from_the_end_of_the_file) {
    const std::string shim = "LD_PRELOAD=" VELAENC_FAULT_SHIM " FAULT_CALL=read FAULT_ON=1 FAULT_",
                      often = shim + "EVERY=2 FAULT_ERRNO=";
    for (const std::string &command : {often + "5 velaenc a.w64", often + "5 velaenc a.flac",
                                       shim + "AT=15 FAULT_ERRNO=5 velaenc a.flac"})
        expect_failure(command + " out.mp2", 2, "Input/output error");
    EXPECT_TRUE(shell(often + "11 velaenc - - < <(cat a.wav)").out == encoded("a.wav"));
}

TEST_F(input_test, a_signal_ends_a_recording_and_the_next_one_the_program) {
    put("raw", pcm(samples_));
    put("streamed", get("a.wav").replace(40, 4, 4, '\xFF'));
    const auto expected = encoded("a.wav");
    const std::string headerless = "--raw --rate 48000 --channels 2 --format s16 ";
    for (const auto &[input, options] :
         {std::pair{"raw", "-j 1 " + headerless}, {"streamed", "-j 3 "}}) {
        // The list tells when 34 of the 35 frames are there; the last one waits for its samples. The
        // writer stays until there is something to see.
        run("set -m; rm -f pipe out.mp2; mkfifo pipe; (cat pipe > rows) & (cat " + std::string(input)
                + "; for i in {1..500}; do sleep 0.02; [ -e out.mp2 ] && break; done) | velaenc "
                + options
                + "--timestamps pipe - out.mp2 & for i in {1..500}; do sleep 0.02; "
                  "[ $(wc -l < rows) -ge 35 ] && break; done; kill -INT $!; wait $!",
            0, "ended by a signal");
        EXPECT_TRUE(get("out.mp2") == expected) << input;
    }
    {
        const tools::live_input recording;
        EXPECT_FALSE(tools::end_live_input(SIGHUP));
        EXPECT_TRUE(tools::end_live_input(SIGTERM));
        EXPECT_FALSE(tools::end_live_input(SIGTERM));
    }
    EXPECT_FALSE(tools::end_live_input(SIGINT));
}

TEST_F(input_test, headerless_input_streams_and_has_whole_samples) {
    const std::string raw = "velaenc --raw --rate 48000 --channels 2 --format s24 ";
    put("whole", pcm(noise(2 * 2400), 3));
    put("odd", get("whole") + "12345");
    put("empty", "");
    expect_failure(raw + "odd out.mp2", 2, "5 of 6 bytes");
    run(raw + "a.wav -", 0, "a.wav begins like an audio file");
    expect_failure(raw + "empty out.mp2", 2, "empty");
    expect_failure("cat empty | " + raw + "- out.mp2", 2, "no samples");
    const auto expected = shell(raw + "whole -").out;
    EXPECT_EQ(frames_of(expected).size(), 3u);
    const auto rest = run("cat odd | " + raw + "- -", 0, "the last 5 of 6 bytes are dropped");
    EXPECT_TRUE(rest.out == expected);
    // Reads that end inside a sample and inside a pair.
    const std::string pieces = "(head -c 4000; sleep 0.02; head -c 4003; sleep 0.02; cat) < whole | ";
    EXPECT_TRUE(shell(pieces + raw + "-").out == expected);
    // Frames come out while the input is still open.
    for (const std::string jobs : {"-j 1", "-j 3"}) {
        const auto live = shell("(cat whole; for i in {1..100}; do sleep 0.02; [ $(stat -c %s out) -ge "
                                "1344 ] && exit; done; echo late >&2) | "
                                + raw + jobs + " --quiet - - > out");
        EXPECT_EQ(live.err, "") << jobs;
    }
}

TEST_F(input_test, headerless_samples_of_every_kind_are_what_another_reader_makes_of_them) {
    put("whole.wav", wav(pcm(noise(20001), 3, 0x80), 1, 48000, 3));
    const struct {
        const char *format, *there, *wide; // ours, ffmpeg's, and what loses nothing of it
    } cases[] = {{"u8", "u8", "s16"},       {"s8", "s8", "s16"},     {"s16be", "s16be", "s16"},
                 {"s24be", "s24be", "s24"}, {"s32", "s32le", "f32"}, {"s32be", "s32be", "f32"},
                 {"f32be", "f32be", "f32"}, {"s24", "s24le", "s24"}, {"s16", "s16le", "s16"},
                 {"f32", "f32le", "f32"}};
    for (const auto &[format, there, wide] : cases) {
        run(std::string("ffmpeg -y -v error -i whole.wav -f ") + there
            + " bytes; ffmpeg -y -v error -f " + there + " -ar 48000 -ac 1 -i bytes -c:a pcm_" + wide
            + "le wide.wav");
        const std::string raw = std::string("--raw --rate 48000 --channels 1 --format ") + format;
        const auto expected = encoded("wide.wav");
        EXPECT_GT(expected.size(), 1000u);
        EXPECT_TRUE(encoded(raw + " bytes") == expected) << format;
        EXPECT_TRUE(encoded(raw + " - < bytes") == expected) << format;
        EXPECT_TRUE(encoded(raw + " --start 0.1 bytes") == encoded("--start 0.1 wide.wav")) << format;
    }
}

} // namespace
} // namespace velaenc_test
