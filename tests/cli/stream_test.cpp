// The stream that comes out: number and lengths of frames, time stamps, channels, sample formats.
#include "workbench.hpp"

#include <algorithm>
#include <sstream>

namespace velaenc_test {
namespace {

using stream_test = workbench;

TEST_F(stream_test, frames_cover_the_input_and_average_to_the_exact_bitrate) {
    const struct {
        int layer, kbit, rate;
        std::size_t instants, frames, bytes;
    } cases[] = {
        // A frame is 144000 kbit / rate bytes, in Layer I 12000 kbit / rate slots of four bytes.
        {2, 384, 32000, 11521, 11, 19008}, {2, 64, 48000, 1, 1, 192},
        {2, 192, 44100, 56448, 49, 30720}, // 626 46/49 bytes a frame
        {1, 448, 44100, 8064, 21, 10240},  // 121 19/21 slots
        {1, 384, 32000, 385, 2, 1152},
    };
    for (const auto &[layer, kbit, rate, instants, count, size] : cases) {
        put("in.wav", wav(pcm(noise(2 * instants)), 2, rate));
        const auto stream =
            encoded("in.wav --layer " + std::to_string(layer) + " --bitrate " + std::to_string(kbit));
        EXPECT_EQ(frames_of(stream).size(), count) << kbit << " kbit/s at " << rate;
        EXPECT_EQ(stream.size(), size) << kbit << " kbit/s at " << rate;
    }
}

TEST_F(stream_test, the_list_of_time_stamps_matches_the_frames_and_exact_arithmetic) {
    put("in.wav", wav(pcm(noise(2 * 57600)), 2, 44100));
    const auto frames = frames_of(
        encoded("in.wav --bitrate 192 --pts-offset -90000 --pts-units 90000 --timestamps list.csv"));
    ASSERT_EQ(frames.size(), 50u);
    std::istringstream list(get("list.csv"));
    std::string row;
    std::getline(list, row);
    EXPECT_EQ(row, "frame,byte_offset,bytes,time_stamp_27mhz,begin_27mhz,pts_90khz");
    for (std::size_t i = 0; i < frames.size(); ++i) {
        // One second before 0, then 1152 / 44100 s a frame, truncated towards zero.
        const auto stamp = [](std::size_t k) {
            return (1152ll * 27000000 * static_cast<long long>(k) - 27000000ll * 44100) / 44100;
        };
        // 90 kHz, rounded down; before 0 the 33 bits of a PTS are about to start over.
        const long long turn = 1ll << 33, begin = stamp(i);
        const long long pts = (begin + 300 * turn) / 300 % turn;
        std::ostringstream expected;
        expected << i << ',' << frames[i].offset << ',' << frames[i].bytes() << ',' << stamp(i + 1)
                 << ',' << begin << ',' << pts;
        std::getline(list, row);
        EXPECT_EQ(row, expected.str());
    }
    EXPECT_FALSE(std::getline(list, row));
}

TEST_F(stream_test, a_long_list_is_complete_and_starts_at_27_mhz_ticks_without_units) {
    put("in.wav", wav(pcm(noise(1000000)), 1, 48000));
    encoded("in.wav --layer 1 --bitrate 384 --pts-offset 5 --timestamps list.csv");
    const auto list = get("list.csv");
    // 1000000 / 384 = 2604.2 frames of 96 slots and 216000 ticks.
    EXPECT_EQ(std::ranges::count(list, '\n'), 1 + 2605);
    EXPECT_NE(list.find("\n0,0,384,216005,5,0\n1,384,384,432005,216005,720\n"), std::string::npos);
    EXPECT_TRUE(list.ends_with("\n2603,999552,384,562464005,562248005,1874160\n"
                               "2604,999936,384,562680005,562464005,1874880\n"));
}

TEST_F(stream_test, sample_formats_of_headerless_input_are_told_apart) {
    const auto sound = noise(2 * 4800);
    put("s16", pcm(sound));
    put("s24", pcm(sound, 3, 0x80));
    put("f32", pcm(sound, 4));
    put("24.wav", wav(pcm(sound, 3, 0x80), 2, 48000, 3));
    const std::string raw = "--bitrate 384 --raw --rate 48000 --channels 2 --format ";
    const auto reference = encoded(raw + "s16 s16"), finer = encoded(raw + "s24 s24");
    EXPECT_EQ(frames_of(reference).size(), 5u);
    // The same numbers are the same stream; half a 16-bit step more is another one.
    EXPECT_TRUE(encoded(raw + "f32 f32") == reference);
    EXPECT_TRUE(encoded("--bitrate 384 24.wav") == finer);
    EXPECT_TRUE(finer != reference);
}

TEST_F(stream_test, a_mixdown_is_the_mean_and_a_duplicate_the_same_twice) {
    const auto left = noise(9600, 1), right = noise(9600, 2);
    std::vector<std::int16_t> pairs, twice, mean;
    for (std::size_t i = 0; i < left.size(); ++i) {
        // Even values have a mean in whole numbers, which no rounding can hide.
        const int l = left[i] & ~1, r = right[i] & ~1;
        for (const int value : {l, r})
            pairs.push_back(static_cast<std::int16_t>(value));
        mean.push_back(static_cast<std::int16_t>((l + r) / 2));
        twice.insert(twice.end(), 2, left[i]);
    }
    put("mean.wav", wav(pcm(mean), 1, 48000));
    put("twice.wav", wav(pcm(twice), 2, 48000));
    const auto mixed = encoded("mean.wav --bitrate 192");
    EXPECT_EQ(frames_of(mixed).size(), 9u);
    for (const int width : {2, 3, 4}) {
        put("pairs.wav", wav(pcm(pairs, width), 2, 48000, width));
        put("left.wav", wav(pcm(left, width), 1, 48000, width));
        EXPECT_TRUE(encoded("pairs.wav --mode mono --bitrate 192") == mixed) << width;
        for (const std::string mode : {" --mode stereo", " --mode joint", " --mode dual"})
            EXPECT_TRUE(encoded("left.wav" + mode) == encoded("twice.wav" + mode)) << width << mode;
    }
    run("velaenc pairs.wav --mode mono -", 0, "mixing");
    run("velaenc left.wav --mode dual -", 0, "duplicating");
}

TEST_F(stream_test, the_plug_in_interface_gives_the_same_stream_and_times) {
    put("s24", wav(pcm(noise(2 * 6000), 3, 0x42), 2, 44100, 3));
    put("f32", wav(pcm(noise(6000), 4), 1, 48000, 4));
    put("long", pcm(noise(400000))); // more than the sink's room
    for (const std::string arguments :
         {"s24 --preset svcd --pts-offset 77", "f32 --preset hdv", "f32 --layer 1 --mode joint",
          "long --raw --rate 32000 --channels 1 --format s16 --layer 1"}) {
        const auto functions = encoded(arguments + " --timestamps list.csv"), times = get("list.csv");
        EXPECT_FALSE(frames_of(functions).empty()) << arguments;
        EXPECT_TRUE(encoded(arguments + " --engine --timestamps list.csv") == functions) << arguments;
        EXPECT_EQ(get("list.csv"), times) << arguments;
    }
    expect_failure("rm list.csv; velaenc s24 out --engine --jobs 2; velaenc s24 out --engine --jobs 2",
                   1, "--engine");
}

} // namespace
} // namespace velaenc_test
