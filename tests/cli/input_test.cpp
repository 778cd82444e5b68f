// Input of every kind, through files and pipes, whole and damaged.
#include "workbench.hpp"

#include <sndfile.h>

namespace velaenc_test {
namespace {

struct container {
    const char *name;
    int format; ///< as libsndfile knows it
    bool lossless;
};

constexpr container containers[] = {
    {"a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, true},
    {"b.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, true},
    {"c.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, true},
    {"x.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, true},
    {"d.wav", SF_FORMAT_WAV | SF_FORMAT_DOUBLE, true},
    {"a.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16, true},
    {"a.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16, true},
    {"a.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, true},
    {"a.au", SF_FORMAT_AU | SF_FORMAT_PCM_16, true},
    {"a.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_24, true},
    {"a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, true},
    {"b.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, true},
    {"a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, false},
    {"a.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, false},
};

class input_test : public workbench {
  protected:
    static constexpr std::size_t instants = 40000; // 34.7 frames, and more than one block of any format
    const std::vector<std::int16_t> samples_ = noise(2 * instants);

    void write(const container &kind) const {
        put(kind.name, "");
        SF_INFO info{};
        info.samplerate = 48000;
        info.channels = 2;
        info.format = kind.format;
        SNDFILE *file = sf_open(path(kind.name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr) << kind.name;
        sf_command(file, SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_TRUE);
        sf_writef_short(file, samples_.data(), instants);
        sf_close(file);
    }
};

TEST_F(input_test, every_container_gives_the_same_stream_from_a_file_and_from_a_pipe) {
    put("raw", pcm(samples_));
    const auto expected = encoded("--raw --rate 48000 --channels 2 --format s16 raw");
    ASSERT_EQ(frames_of(expected).size(), 35u);
    for (const auto &kind : containers) {
        write(kind);
        const std::string name = kind.name;
        const auto stream = encoded(name);
        EXPECT_EQ(frames_of(stream).size(), 35u) << name;
        EXPECT_TRUE(stream == expected || !kind.lossless) << name;
        for (const char *input : {"cat ", "(head -c 7; sleep 0.02; cat) < "})
            EXPECT_TRUE(shell(input + name + " | velaenc - -").out == stream) << input << name;
        EXPECT_TRUE(shell("velaenc - - < " + name).out == stream) << name;
    }
}

TEST_F(input_test, a_file_without_its_end_is_noticed_in_every_container) {
    for (const auto &kind : containers) {
        write(kind);
        const std::string cut = "cut-" + std::string(kind.name);
        const std::string whole = get(kind.name);
        put(cut, whole.substr(0, whole.size() / 2));
        expect_failure("velaenc " + cut + " out.mp2", 2, "truncated");
        expect_failure("cat " + cut + " | velaenc - out.mp2", 2, "truncated");
    }
}

TEST_F(input_test,
       a_wav_ends_where_its_size_says_and_with_the_file_when_a_piping_writer_could_not_know) {
    const std::string whole = wav(pcm(samples_), 2, 48000);
    put("whole.wav", whole);
    const auto expected = encoded("whole.wav");
    ASSERT_EQ(frames_of(expected).size(), 35u);
    put("tagged.wav", whole + std::string("LIST\x10\0\0\0", 8) + std::string(16, 'x'));
    EXPECT_TRUE(encoded("tagged.wav") == expected);
    EXPECT_TRUE(shell("cat tagged.wav | velaenc - -").out == expected);
    const struct {
        std::string file, sound;
    } sizes[] = {
        {std::string(4, '\xFF'), std::string(4, '\xFF')},
        {whole.substr(4, 4), std::string("\0\xF0\xFF\x7F", 4)},
        {std::string(4, '\0'), std::string(4, '\0')},
        {std::string("\x24\0\0\0", 4), std::string(4, '\0')}, // of a file without any sound
    };
    for (const auto &[file, sound] : sizes) {
        std::string piped = whole;
        piped.replace(4, 4, file).replace(40, 4, sound);
        put("piped.wav", piped);
        EXPECT_TRUE(encoded("piped.wav") == expected);
        EXPECT_TRUE(shell("cat piped.wav | velaenc - -").out == expected);
    }
}

TEST_F(input_test, input_that_is_no_audio_is_named_for_what_it_is) {
    put("empty", "");
    put("text", "This is no audio at all, just a line of text that happens to be here.\n");
    put("silent.wav", wav("", 2, 48000));
    expect_failure("velaenc missing.wav out.mp2", 2, "missing.wav: No such file");
    expect_failure("velaenc . out.mp2", 2, "folder");
    expect_failure("velaenc empty out.mp2", 2, "empty is empty (0 bytes)");
    expect_failure("velaenc - out.mp2", 2, "standard input is empty");
    expect_failure("cat empty | velaenc - out.mp2", 2, "standard input is empty");
    expect_failure("velaenc text out.mp2", 2, "audio file is needed");
    expect_failure("cat text | velaenc - out.mp2", 2, "audio file is needed");
    expect_failure("velaenc silent.wav out.mp2", 2, "no samples");
    expect_failure("cat silent.wav | velaenc - out.mp2", 2, "no samples");
}

TEST_F(input_test, headerless_input_streams_and_has_whole_samples) {
    const std::string raw = "velaenc --raw --rate 48000 --channels 2 --format s24 ";
    put("whole", pcm(noise(2 * 2400), 3));
    put("odd", get("whole") + "12345");
    put("empty", "");
    expect_failure(raw + "odd out.mp2", 2, "5 of 6 bytes");
    expect_failure("cat odd | " + raw + "- out.mp2", 2, "5 of 6 bytes");
    expect_failure(raw + "empty out.mp2", 2, "empty");
    expect_failure("cat empty | " + raw + "- out.mp2", 2, "no samples");
    const auto expected = shell(raw + "whole -").out;
    EXPECT_EQ(frames_of(expected).size(), 3u);
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

} // namespace
} // namespace velaenc_test
