// Frame sizes, padding and time stamps.
#include "parser/standard_tables.hpp"
#include "stream/frame_timer.hpp"

#include <cmath>
#include <gtest/gtest.h>

namespace {

using vela::frame_timer;

TEST(frame_timer, padding_and_stamps_at_44100_keep_to_exact_arithmetic) {
    // Exactly, the number of padded frames among the first N is the whole part of (N + 1) times the
    // fraction of a slot. Where that product is whole, the accumulator's rounding may put the padding
    // one frame later; the next frame makes up for it. Stamps are sums of doubles below 2^37 ticks,
    // each rounded by at most 2^-17, and then truncated.
    for (int i = 0; i < 2 * 14; ++i) {
        const int layer = 1 + i % 2, kbps = tools::bitrate_of(layer, 1 + i / 2);
        const std::int64_t ticks_times_49 = layer == 1 ? 11520000 : 34560000;
        const std::int64_t slots_times_441 = (layer == 1 ? 120 : 1440) * kbps;
        const std::int64_t fraction = slots_times_441 % 441;
        frame_timer timer;
        timer.init(layer, 0, 44.1, kbps);
        std::int64_t padded = 0;
        for (std::int64_t n = 1; n <= 120000; ++n) {
            const int padding = timer.decide_padding();
            padded += padding;
            const std::int64_t exact = (n + 1) * fraction;
            const bool tie = exact % 441 == 0 && fraction != 0;
            ASSERT_TRUE(padded == exact / 441 || (tie && padded == exact / 441 - 1))
                << "layer " << layer << ", " << kbps << " kbit/s, frame " << n;
            ASSERT_EQ(timer.frame_bits(), (slots_times_441 / 441 + padding) * (layer == 1 ? 32 : 8));
            const auto stamp = static_cast<long double>(timer.advance_time());
            const long double exact_time = static_cast<long double>(n * ticks_times_49) / 49;
            const long double rounding = static_cast<long double>(n) * 0x1p-17L;
            ASSERT_GE(stamp, std::floor(exact_time - rounding)) << "frame " << n;
            ASSERT_LE(stamp, std::floor(exact_time + rounding)) << "frame " << n;
        }
    }
}

} // namespace
