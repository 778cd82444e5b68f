// Header words, frame sizes, padding and time stamps.
#include "oracle/standard_tables.hpp"
#include "stream/frame_header.hpp"
#include "stream/frame_timer.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <string>

namespace {

using namespace vela;

TEST(frame_header, fields_stand_where_the_standard_puts_them) {
    // By hand from ISO/IEC 11172-3, 2.4.1.3: layer, CRC, bitrate, rate, padding, private, mode,
    // extension, copyright, original, emphasis.
    const struct {
        frame_header header;
        std::uint32_t word;
    } cases[] = {
        {{1, 2, 1, 11, 1, 0, 0, 0, 0, 0, 0, 0, {}}, 0xFFFCB400},
        {{1, 2, 0, 11, 1, 0, 0, 0, 0, 0, 0, 0, {}}, 0xFFFDB400},
        {{1, 2, 0, 11, 0, 1, 0, 3, 0, 0, 0, 0, {}}, 0xFFFDB2C0},
        {{1, 1, 1, 14, 2, 0, 0, 1, 2, 1, 1, 3, {}}, 0xFFFEE86F},
        {{1, 2, 0, 1, 0, 0, 1, 2, 0, 0, 0, 0, {}}, 0xFFFD1180},
    };
    for (const auto &c : cases)
        EXPECT_EQ(header_word(c.header), c.word) << std::hex << c.word;
}

TEST(frame_timer, padding_and_stamps_at_44100_keep_to_exact_arithmetic) {
    // Exactly, the number of padded frames among the first N is the whole part of (N + 1) times the
    // fraction of a slot. Where that product is whole, the accumulator's rounding may put the padding
    // one frame later; the next frame makes up for it. Stamps are sums of doubles below 2^37 ticks,
    // each rounded by at most 2^-17, and then truncated.
    constexpr int frames = 120000;
    for (const int layer : {1, 2}) {
        const std::int64_t ticks_times_49 =
            layer == 1 ? 11520000 : 34560000; // samples 27000000 / 44100
        for (int index = 1; index <= 14; ++index) {
            const int kbps = oracle::bitrate_of(layer, index);
            const std::int64_t slots_times_441 = (layer == 1 ? 120 : 1440) * kbps;
            const std::int64_t fraction = slots_times_441 % 441;
            frame_timer timer;
            timer.init(layer, 0, 44.1, kbps);
            std::int64_t padded = 0;
            for (std::int64_t n = 1; n <= frames; ++n) {
                const int padding = timer.decide_padding();
                padded += padding;
                const std::int64_t exact = (n + 1) * fraction;
                const bool tie = exact % 441 == 0 && fraction != 0;
                ASSERT_TRUE(padded == exact / 441 || (tie && padded == exact / 441 - 1))
                    << "layer " << layer << ", " << kbps << " kbit/s, frame " << n;
                ASSERT_EQ(timer.frame_bits(),
                          (slots_times_441 / 441 + padding) * (layer == 1 ? 32 : 8));
                const auto stamp = static_cast<long double>(timer.advance_time());
                const long double exact_time = static_cast<long double>(n * ticks_times_49) / 49;
                const long double rounding = static_cast<long double>(n) * 0x1p-17L;
                ASSERT_GE(stamp, std::floor(exact_time - rounding)) << "frame " << n;
                ASSERT_LE(stamp, std::floor(exact_time + rounding)) << "frame " << n;
            }
        }
    }
}

TEST(frame_timer, time_stops_at_the_end_of_its_range) {
    frame_timer timer;
    timer.init(2, INT64_MAX - 1000000, 48.0, 224);
    for (int n = 0; n < 3; ++n)
        EXPECT_GE(timer.advance_time(), INT64_MAX - 1000000);
    EXPECT_EQ(timer.advance_time(), INT64_MAX);
}

TEST(frame_timer, first_paddings_follow_the_rule_for_ties) {
    // Worked out by hand with fractions: 224 kbit/s is 731 3/7 slots, 192 is 626 46/49, Layer I at 448
    // is 121 19/21.
    const struct {
        int layer, kbps;
        const char *paddings;
    } cases[] = {{2, 224, "010101001010100101010"},
                 {2, 192, "111111111111111011111"},
                 {1, 448, "111111111011111111101"}};
    for (const auto &c : cases) {
        frame_timer timer;
        timer.init(c.layer, 0, 44.1, c.kbps);
        std::string paddings;
        for (int i = 0; i < 21; ++i)
            paddings += timer.decide_padding() == 1 ? '1' : '0';
        EXPECT_EQ(paddings, c.paddings) << c.kbps;
    }
}

} // namespace
