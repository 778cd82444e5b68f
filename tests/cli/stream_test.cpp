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
    constexpr int count = 2605; // more than the list's room for text
    put("in.wav", wav(pcm(noise(1152 * count)), 1, 44100));
    for (const auto &[arguments, first] :
         {std::pair{"--pts-offset -90000 --pts-units 90000", -27000000ll}, {"--pts-offset 5", 5ll}}) {
        const auto frames =
            frames_of(encoded(std::string("in.wav --bitrate 64 --timestamps list.csv ") + arguments));
        ASSERT_EQ(frames.size(), static_cast<std::size_t>(count));
        std::ostringstream expected;
        expected << "frame,byte_offset,bytes,time_stamp_27mhz,begin_27mhz,pts_90khz\n";
        // Durations of 1152 / 44100 s are added up in double and truncated towards zero.
        double end = static_cast<double>(first);
        for (int i = 0; i < count; ++i) {
            const auto begin = static_cast<long long>(end);
            end += 1152 * 27000000.0 / 44100;
            // 90 kHz, rounded down; before 0 the 33 bits of a PTS are about to start over.
            const long long turn = 1ll << 33, pts = (begin + 300 * turn) / 300 % turn;
            const frame &each = frames[static_cast<std::size_t>(i)];
            expected << i << ',' << each.offset << ',' << each.bytes() << ','
                     << static_cast<long long>(end) << ',' << begin << ',' << pts << '\n';
        }
        EXPECT_TRUE(get("list.csv") == expected.str()) << arguments;
    }
}

TEST_F(stream_test, a_mixdown_is_the_mean_and_a_duplicate_the_same_twice) {
    const auto left = noise(9600, 1), right = noise(9600, 2);
    std::vector<std::int16_t> pairs, twice, mean;
    for (std::size_t i = 0; i < left.size(); ++i) {
        // Even values have a mean in whole numbers, which no rounding can hide.
        const auto l = static_cast<std::int16_t>(left[i] & ~1),
                   r = static_cast<std::int16_t>(right[i] & ~1);
        pairs.insert(pairs.end(), {l, r});
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
