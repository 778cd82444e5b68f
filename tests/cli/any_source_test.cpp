// Input that ffmpeg decodes: films and formats that libsndfile does not read.
#include "workbench.hpp"

#include <numeric>
#include <ogg/ogg.h>

namespace velaenc_test {
namespace {

class any_source_test : public workbench {
  protected:
    any_source_test() {
        put("two.wav", wav(pcm(noise(2 * 96000)), 2, 48000));
        put("six.wav", wav(pcm(noise(6 * 48000, 7)), 6, 48000));
        for (const char *made : {"film.mkv", "cut.mkv"})
            put(made, "");
        run("ffmpeg -v error -y -i two.wav -i six.wav -map 0 -map 1 -c:a flac film.mkv");
        put("cut.mkv", get("film.mkv").substr(0, 300000));
    }
};

TEST_F(any_source_test, what_ffmpeg_decodes_is_encoded_as_if_it_were_wav) {
    const auto two = encoded("two.wav"), six = encoded("six.wav");
    const struct {
        std::string name, codec;
    } cases[] = {{"a.mka", "pcm_s16le"}, {"-codec.m4a", "alac"}, {"http:a.mov", "alac"}};
    for (const auto &[name, codec] : cases) {
        run("ffmpeg -v error -i two.wav -c:a " + codec + " 'file:" + name + "'");
        EXPECT_TRUE(encoded("-o - -- '" + name + "' #") == two) << name;
    }
    EXPECT_TRUE(encoded("film.mkv") == two);
    EXPECT_TRUE(encoded("film.mkv --stream 2 -j 1") == six);
    EXPECT_TRUE(run("cat film.mkv | velaenc --quiet --stream 2 - -").out == six);
}

TEST_F(any_source_test, a_failure_of_ffmpeg_is_one_of_the_input) {
    put("text", "no sound\n");
    expect_failure("velaenc cut.mkv out.mp2", 2,
                   "cut.mkv cannot be decoded to its end: ffmpeg says '[");
    run("velaenc cut.mkv --ignore-length -", 0, "note: cut.mkv cannot be decoded to its end");
    expect_failure("velaenc text out.mp2", 2, "ffmpeg says 'text: Invalid data");
    expect_failure("velaenc film.mkv out.mp2 --stream 3", 2, "matches no streams");
    expect_failure("velaenc film.mkv out.mp2 --stream 0", 1, "1 to 999");
    expect_failure("PATH=none $(which velaenc) film.mkv out.mp2", 2, "apt install ffmpeg");
    // One that dies in the middle, and one that never ends: Ctrl-C is no end of a recording here.
    put("ffmpeg", "#!/bin/bash\ncat two.wav; kill -9 $$\n");
    put("rows", "");
    const std::string with_own = "chmod +x ffmpeg; PATH=.:$PATH; ";
    expect_failure(with_own + "velaenc film.mkv out.mp2", 2, "ffmpeg ended with 137");
    put("ffmpeg", "#!/bin/bash\ncat two.wav; echo $$ >rows; exec sleep 60\n");
    expect_failure(with_own
                       + "set -m; velaenc film.mkv out.mp2 & until [ -s rows ]; do sleep 0.02; done; "
                         "kill -INT $!; wait $!; s=$?; kill -9 $(cat rows); exit $s",
                   130, "");
}

TEST_F(any_source_test, batches_take_films_and_skip_the_complete_ones) {
    run("mkdir in; ln film.mkv two.wav cut.mkv in; echo words > in/words.txt; touch -d '1 hour ago' "
        "in/*");
    const std::string batch = "velaenc -r in --output-dir out --resume --report lines";
    run(batch, 6, "2 encoded, 0 complete before, 1 failed, 1 other");
    run(batch, 6, "0 encoded, 2 complete before, 1 failed, 1 other");
    EXPECT_NE(get("lines").find("File ended prematurely"), std::string::npos);
    // A whole frame less: how long a film is says the report only.
    run("truncate -s -672 out/film.mp2; " + batch, 6, "1 encoded, 1 complete");
}

/// Changes bits in the head of the last page but three, and its checksum with them.
std::string with_other_page(std::string ogg, std::size_t place, unsigned bits) {
    std::size_t at = ogg.size();
    for (int i = 0; i < 4; ++i)
        at = ogg.rfind("OggS", at - 1);
    auto *const bytes = reinterpret_cast<unsigned char *>(&ogg[at]);
    auto *const body = bytes + 27 + bytes[26];
    bytes[place] = static_cast<unsigned char>(bytes[place] ^ bits);
    ogg_page page{bytes, body - bytes, body, std::accumulate(bytes + 27, body, 0l)};
    ogg_page_checksum_set(&page);
    return ogg;
}

TEST_F(any_source_test, what_libsndfile_leaves_out_of_an_ogg_stream_is_read_by_ffmpeg) {
    put("whole.ogg", "");
    const struct {
        std::string name, codec;
        std::size_t place;
        unsigned bits;
    } cases[] = {{"early", "vorbis", 5, 4}, // calls itself the last one
                 {"jumps", "opus", 7, 2}};  // counts 512 samples more or less than it has
    for (const auto &[name, codec, place, bits] : cases) {
        run("ffmpeg -v error -y -i two.wav -page_duration 200000 -c:a lib" + codec + " whole.ogg");
        put(name + ".ogg", with_other_page(get("whole.ogg"), place, bits));
        run("velaenc --overwrite whole.ogg; velaenc " + name + ".ogg", 0,
            "of 96000; ffmpeg reads the rest");
        const auto expected = heard("whole.mp2"), read = heard(name + ".mp2");
        ASSERT_EQ(read.size(), expected.size()) << name;
        for (std::size_t i = 0; i < read.size(); ++i)
            ASSERT_NEAR(read[i], expected[i], 0.05) << name << i;
    }
    expect_failure("rm *.mp2; PATH=none $(which velaenc) early.ogg out.mp2", 2,
                   "can be read; ffmpeg, which may");
    // One that reads another sound cannot go on with this one.
    put("other.wav", wav(pcm(noise(2 * 96000, 5), 4), 2, 48000, 4));
    put("ffmpeg", "#!/bin/bash\ncat other.wav\n");
    expect_failure("chmod +x ffmpeg; PATH=.:$PATH; velaenc early.ogg out.mp2", 2, "can be read;");
}

} // namespace
} // namespace velaenc_test
