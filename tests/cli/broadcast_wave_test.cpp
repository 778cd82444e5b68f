// MPEG audio in WAV: its chunks as EBU Tech 3285 describes them, byte by byte.
#include "input/container.hpp"
#include "output/wave_header.hpp"
#include "workbench.hpp"

#include <cstring>

namespace velaenc_test {
namespace {

class broadcast_wave_test : public workbench {
  protected:
    /// Contents of a chunk, which have to end where the next one begins.
    static std::string chunk_of(const std::string &file, const std::string &wanted) {
        for (std::size_t at = 12; at + 8 <= file.size();) {
            const std::size_t size = number(file, at + 4, 4);
            if (file.compare(at, 4, wanted) == 0) return file.substr(at + 8, size);
            at += 8 + size + size % 2;
        }
        return "";
    }
    static std::uint64_t number(const std::string &bytes, std::size_t at, std::size_t count) {
        std::uint64_t value = 0;
        std::memcpy(&value, bytes.data() + at, count);
        return value;
    }
};

TEST_F(broadcast_wave_test, the_chunks_describe_the_stream) {
    const struct {
        int channels;
        std::string arguments;
        std::vector<std::uint64_t> fields; ///< from wFormatTag to dwPTSHigh, then those of mext
        std::string history;
    } cases[] = {
        {2,
         "",
         {80, 2, 48000, 28000, 672, 0, 22, 2, 224000, 1, 0, 1, 0x18, 0, 3, 672},
         "B=224,M=stereo"},
        {2,
         "--bitrate 192 --mode joint --crc --original 1 --pts-offset 900 --pts-units 300",
         {80, 2, 44100, 24000, 1, 0, 22, 2, 192000, 2, 15, 1, 0x14, 270000, 1, 626}, // 3 s
         "B=192,M=joint-stereo"},
        {1,
         "--layer 1 --bitrate 96 --emphasis j17 --private 1 --copyright 1 --pts-offset 2700",
         {80, 1, 32000, 12000, 144, 0, 22, 1, 96000, 8, 0, 4, 0x1B, 9, 3, 144},
         "B=96,M=mono"},
        {1,
         "--layer 1 --mode dual --bitrate 448",
         {80, 2, 44100, 56000, 1, 0, 22, 1, 448000, 4, 0, 1, 0x18, 0, 1, 484},
         "B=448,M=dual-mono"},
    };
    constexpr std::size_t widths[] = {2, 2, 4, 4, 2, 2, 2, 2, 4, 2, 2, 2, 2, 8, 2, 2};
    for (const auto &[channels, arguments, fields, history] : cases) {
        const auto rate = static_cast<int>(fields[2]);
        put("in.wav", wav(pcm(noise(14500)), channels, rate));
        run("velaenc in.wav --container wav out.WAV " + arguments + " --timestamps list");
        run("velaenc in.wav out.mp2 " + arguments);
        const std::string file = get("out.WAV"), stream = get("out.mp2");
        EXPECT_TRUE(chunk_of(file, "data") == stream) << arguments;
        EXPECT_EQ(number(file, 4, 4) + 8, file.size()) << arguments;
        EXPECT_EQ(file.size() % 2, 0u);
        const std::string fmt = chunk_of(file, "fmt "), mext = chunk_of(file, "mext");
        ASSERT_EQ(fmt.size(), 40u);
        ASSERT_EQ(mext.size(), 12u);
        std::size_t at = 0;
        for (std::size_t i = 0; i < fields.size(); at += widths[i++])
            EXPECT_EQ(number(fmt + mext, at, widths[i]), fields[i]) << arguments << ", field " << i;
        EXPECT_EQ(chunk_of(file, "bext").substr(256, 10), std::string("velaenc\0\0\0", 10));
        const auto frames = frames_of(stream).size();
        EXPECT_EQ(number(chunk_of(file, "fact"), 0, 4), frames * (fields[7] == 1 ? 384 : 1152));
        const std::string rates = "F=" + std::to_string(rate) + ",";
        EXPECT_EQ(chunk_of(file, "bext").substr(602),
                  "A=PCM," + rates + "W=16,M=" + (channels == 1 ? "mono" : "stereo") + "\r\nA=MPEG1L"
                      + std::to_string(fields[7]) + "," + rates + history + ",T=velaenc\r\n");
        const std::string first_row = "\n0," + std::to_string(file.find(stream)) + ",";
        EXPECT_NE(get("list").find(first_row), std::string::npos) << get("list");
    }
    run("ffmpeg -v error -i in.wav -c:a pcm_f32le float.wav && velaenc float.wav of_float.wav");
    EXPECT_EQ(chunk_of(get("of_float.wav"), "bext").substr(602, 8), "A=MPEG1L"); // no bits to name
}

TEST_F(broadcast_wave_test, the_extension_of_the_input_is_carried_over) {
    // ffmpeg writes the fields of the input, and reads those of the output.
    put("plain.wav", wav(pcm(noise(96000)), 2, 48000));
    const std::string tags =
        "-metadata description=Morning -metadata originator=ARC -metadata originator_reference=X1"
        " -metadata origination_date=2026-01-02 -metadata time_reference=9600000000 ";
    run("ffmpeg -v error -i plain.wav -c copy -write_bext 1 " + tags
        + "-metadata coding_history='A=PCM,F=48000,W=16,M=stereo,T=desk' in.wav");
    run("velaenc --quiet in.wav out.wav");
    const std::string before = chunk_of(get("in.wav"), "bext"),
                      after = chunk_of(get("out.wav"), "bext");
    EXPECT_EQ(after.substr(0, 602), before.substr(0, 602));
    // Half a second in, at another rate: (9600000000 + 24000) * 44.1 / 48. Loudness of version 2 goes along
    // as long as it is that of the sound.
    put("loud.wav", get("in.wav")
                        .replace(get("in.wav").find("bext") + 8 + 346, 1, 1, '\2')
                        .replace(get("in.wav").find("bext") + 8 + 412, 10, "0123456789"));
    const std::string unknown("\xFF\x7F\xFF\x7F\xFF\x7F\xFF\x7F\xFF\x7F");
    const struct {
        std::string arguments;
        std::uint64_t time;
        std::string loudness;
    } changes[] = {
        {"--swap-channels", 9600000000, "0123456789"},
        {"--start 0.5 --to-rate 44100", 8820022050, unknown},
        {"--duration 1", 9600000000, unknown},
        {"--gain -3", 9600000000, unknown},
        {"--mode mono", 9600000000, unknown},
    };
    for (const auto &[arguments, time, loudness] : changes) {
        run("velaenc --quiet loud.wav changed.wav " + arguments);
        const std::string bext = chunk_of(get("changed.wav"), "bext");
        EXPECT_EQ(number(bext, 338, 8), time) << arguments;
        EXPECT_EQ(bext.substr(412, 10), loudness) << arguments;
    }
    EXPECT_NE(after.find(",T=desk\r\nA=MPEG1L2,F=48000,B=224,M=stereo,T=velaenc\r\n"), after.npos);
    run("ffprobe -v error -show_entries format_tags out.wav | grep 9600000000 && mpg123 -q -t out.wav");
}

/// Four characters, a size, the contents and a byte of padding.
std::string chunk_text(const std::string &name, const std::string &contents) {
    return name + little_endian(contents.size(), 4) + contents + std::string(contents.size() % 2, 0);
}

std::string cue_points(const std::vector<std::pair<unsigned, std::uint64_t>> &points) {
    std::string text = little_endian(points.size(), 4);
    for (const auto &[number, position] : points)
        text += little_endian(number, 4) + little_endian(position, 4) + "data" + little_endian(0, 8)
                + little_endian(position, 4);
    return text;
}

TEST_F(broadcast_wave_test, labels_go_along_and_keep_their_place_in_the_sound) {
    std::string cart(2048, 'c');
    cart.replace(684, 64,
                 "AUDe" + little_endian(44100, 4) + std::string(48, 0) + "EOD "
                     + little_endian(88200, 4));
    const auto cart_with = [&](unsigned first, unsigned last) {
        return cart.substr(0, 688) + little_endian(first, 4) + cart.substr(692, 52)
               + little_endian(last, 4) + cart.substr(748);
    };
    const auto label = [](unsigned number, const std::string &text) {
        return chunk_text("labl", little_endian(number, 4) + text);
    };
    const auto region = [](unsigned number, unsigned length) {
        return chunk_text("ltxt", little_endian(number, 4) + little_endian(length, 4) + "rgn ");
    };
    const std::string info = "INFO" + chunk_text("INAM", "A name"), ixml = "<BWFXML/>",
                      axml = "<ebuCore/>";
    const std::string sound = pcm(noise(2 * 44100 * 3));
    put("in.wav",
        "RIFF" + little_endian(0, 4) + "WAVE" + chunk_text("iXML", ixml) + chunk_text("cart", cart)
            + chunk_text("fmt ", wav("", 2, 44100).substr(20, 16)) + chunk_text("data", sound)
            + chunk_text("cue ", cue_points({{1, 100}, {2, 44100}, {3, 88200}, {4, 132300}}))
            + chunk_text("LIST", "adtl" + label(1, "early") + label(3, "kept") + region(3, 441))
            + chunk_text("LIST", info) + chunk_text("axml", axml)
            + chunk_text("smpl", std::string(36, 0)));
    run("velaenc in.wav same.wav", 0, "the chunk 'smpl' is not carried");
    const std::string same = get("same.wav"), original = get("in.wav");
    for (const std::string name : {"iXML", "axml", "cart", "cue ", "LIST"})
        EXPECT_EQ(chunk_of(same, name), chunk_of(original, name)) << name;
    EXPECT_NE(same.find(chunk_text("LIST", info)), same.npos);
    // From 0.5 to 2.5 s at 48 kHz: of the points at 0.002, 1, 2 and 3 s two are left.
    run("velaenc in.wav part.wav --start 0.5 --duration 2 --to-rate 48000", 0, "2 cue points outside");
    const std::string part = get("part.wav");
    EXPECT_EQ(chunk_of(part, "cue "), cue_points({{2, 24000}, {3, 72000}}));
    EXPECT_EQ(chunk_of(part, "LIST"), "adtl" + label(3, "kept") + region(3, 480));
    EXPECT_EQ(chunk_of(part, "cart"), cart_with(24000, 72000));
    put("cut.wav", original.substr(0, original.size() - 8));
    run("velaenc cut.wav cut-mpeg.wav", 0, "the chunk 'smpl'");
    run("ffmpeg -v error -i part.wav -f null -");
}

TEST_F(broadcast_wave_test, a_pipe_leaves_the_sizes_open_and_a_finished_file_is_skipped) {
    put("in.wav", wav(pcm(noise(9600)), 2, 48000));
    const auto piped = shell("velaenc --quiet --container wav in.wav - | cat").out;
    EXPECT_EQ(number(piped, 4, 4), 0xFFFFFFFFu);
    EXPECT_EQ(frames_of(piped.substr(piped.find("data\xFF\xFF\xFF\xFF") + 8)).size(), 5u);
    shell("touch -d '1 hour ago' in.wav");
    const std::string batch = "velaenc --output-dir out --container wav --resume in.wav";
    shell(batch);
    run(batch, 0, "1 complete before");
    shell("touch -d '1 hour ago' in.wav; truncate -s -672 out/in.wav");
    run(batch, 0, "1 encoded, 0 complete before");
}

TEST_F(broadcast_wave_test, beyond_4_gib_it_is_rf64_with_the_same_places) {
    mpeg_a_settings settings{};
    settings.audio_layer = 2, settings.audio_bitrate = 11; // 224 kbit/s
    const tools::byte_list bext(603);
    const std::uint64_t bytes = (std::uint64_t{1} << 32) - 2, samples = (std::uint64_t{1} << 33) + 5;
    const auto text = [&](const std::optional<tools::wave_sizes> &sizes) {
        const auto header = tools::wave_header(settings, 48000, {{"bext", bext}}, sizes);
        return std::string(reinterpret_cast<const char *>(header.data()), header.size());
    };
    const std::string large = text(tools::wave_sizes{bytes, samples}), open = text(std::nullopt);
    EXPECT_EQ(large.size(), open.size());
    EXPECT_EQ(large.substr(0, 4) + large.substr(8, 8), "RF64WAVEds64");
    EXPECT_EQ(number(large, 4, 4), 0xFFFFFFFFu);
    EXPECT_EQ(number(large, 20, 8), large.size() + bytes - 8);
    EXPECT_EQ(number(large, 28, 8), bytes);
    EXPECT_EQ(number(large, 36, 8), samples);
    EXPECT_EQ(large.substr(large.size() - 8), "data\xFF\xFF\xFF\xFF");
    EXPECT_EQ(number(chunk_of(large, "fact"), 0, 4), 0xFFFFFFFFu);
    // The largest RIFF file: its size field can just hold what follows.
    const std::uint64_t most = 0xFFFFFFFE - (large.size() - 8);
    EXPECT_EQ(text(tools::wave_sizes{most, 0}).substr(0, 4), "RIFF");
    EXPECT_EQ(text(tools::wave_sizes{most + 1, 0}).substr(0, 4), "RF64");
}

} // namespace
} // namespace velaenc_test
