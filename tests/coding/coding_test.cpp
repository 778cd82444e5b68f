// Scale factors and bit allocation against the wording of ISO/IEC 11172-3, on more than real frames
// hold.
#include "coding/bit_allocation.hpp"
#include "coding/crc.hpp"
#include "coding/frame_coder.hpp"
#include "coding/scalefactors.hpp"
#include "oracle/coding.hpp"
#include "oracle/standard_tables.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace {

using namespace vela;

frame_header header_of(int layer, int mode, int bitrate_index, int rate_index, int crc = 0) {
    const auto byte = [](int value) { return static_cast<std::uint8_t>(value); };
    return {1, byte(layer), byte(crc), byte(bitrate_index), byte(rate_index), 0, 0, byte(mode), 0, 0,
            0, 0,           {}};
}

int kbps_per_channel(int layer, int index, int channels) {
    return oracle::bitrate_of(layer, index) / channels;
}

constexpr int rates[3] = {44100, 48000, 32000}; // by sampling_frequency

TEST(scalefactors, index_is_the_last_one_that_reaches_the_maximum) {
    for (int i = 0; i < 63; ++i) {
        const double factor = oracle::scalefactor(i);
        EXPECT_EQ(scalefactor_index(factor), i) << "the factor itself";
        EXPECT_EQ(scalefactor_index(std::nextafter(factor, 0)), i) << "just below";
        EXPECT_EQ(scalefactor_index(std::nextafter(factor, 3)), std::max(i - 1, 0)) << "just above";
    }
    for (const double beyond : {2.5, 1e30, std::numeric_limits<double>::infinity()})
        EXPECT_EQ(scalefactor_index(beyond), 0);
    for (const double tiny : {0.0, 5e-324, 1e-300})
        EXPECT_EQ(scalefactor_index(tiny), 62);
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> exponent(-25, 2);
    for (int i = 0; i < 2000; ++i) {
        const double maximum = std::exp2(exponent(random));
        EXPECT_EQ(scalefactor_index(maximum), oracle::scalefactor_index(maximum)) << maximum;
    }
}

TEST(scalefactors, selection_of_every_triple_is_that_of_the_table) {
    for (int i = 0; i < 63 * 63 * 63; ++i) {
        int expected[3] = {i % 63, i / 63 % 63, i / 63 / 63};
        auto first = static_cast<std::uint8_t>(expected[0]),
             second = static_cast<std::uint8_t>(expected[1]),
             third = static_cast<std::uint8_t>(expected[2]);
        const int scfsi = oracle::select_scalefactors(expected);
        ASSERT_EQ(choose_scfsi(first, second, third), scfsi) << i;
        ASSERT_TRUE(first == expected[0] && second == expected[1] && third == expected[2]) << i;
    }
}

class ratio_source {
  public:
    explicit ratio_source(unsigned seed) : random_(seed) {}

    int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }

    /// Ratios of several kinds: spread out, on a grid with many ties, all the same, falling steeply, in
    /// both channels alike, one subband far off.
    void fill(double (&smr)[2][32]) {
        const int kind = below(6);
        std::uniform_real_distribution<double> uniform(-30, 90);
        const double level = uniform(random_);
        for (int ch = 0; ch < 2; ++ch) {
            for (int sb = 0; sb < 32; ++sb) {
                const double value = uniform(random_);
                smr[ch][sb] = kind == 1   ? std::round(value / 7) * 7
                              : kind == 2 ? level
                              : kind == 3 ? level - 6 * sb + value / 10
                                          : value;
                if (kind == 4 && ch == 1) smr[1][sb] = smr[0][sb];
            }
        }
        if (kind == 5) smr[below(2)][below(2) * below(32)] = below(2) ? 160 : -160;
    }

  private:
    std::mt19937 random_;
};

/// The encoder's answer to the oracle's problem.
oracle::allocation_answer allocate(const coder_config &config, const oracle::allocation_problem &p) {
    smr_table smr;
    side_info side;
    frame_header header{};
    for (int i = 0; i < 64; ++i) {
        smr[i / 32][i % 32] = p.smr[i / 32][i % 32];
        side.scfsi[i / 32][i % 32] = static_cast<std::uint8_t>(p.scfsi[i / 32][i % 32]);
    }
    side.joint_bound = config.sblimit;
    if (p.joint) choose_joint_bound(config, smr, p.budget, header, side);
    oracle::allocation_answer answer;
    // Wherever the search is told to look first, it finds the same: a hint from anywhere will do.
    double level_hint = p.smr[0][p.budget % 32];
    answer.left = allocate_bits(config, smr, p.budget, side, level_hint);
    answer.mode = header.mode;
    answer.extension = header.mode_extension;
    answer.bound = side.joint_bound;
    for (int ch = 0; ch < config.channels; ++ch)
        std::copy_n(side.allocation[ch], config.sblimit, answer.allocation[ch]);
    return answer;
}

TEST(bit_allocation, bound_picks_ties_and_rest_equal_the_search_as_worded) {
    ratio_source random(11);
    int joint_frames = 0, tight_frames = 0;
    for (int i = 0; i < 40000; ++i) {
        const int layer = 1 + random.below(2), mode = random.below(4), index = 1 + random.below(14),
                  rate = random.below(3), crc = random.below(2);
        const coder_config config = make_coder_config(header_of(layer, mode, index, rate, crc));
        oracle::allocation_problem p{};
        p.layer = layer;
        p.channels = mode == 3 ? 1 : 2;
        p.crc = crc == 1;
        p.joint = mode == 1;
        p.table = oracle::table_of(rates[rate], kbps_per_channel(layer, index, p.channels));
        random.fill(p.smr);
        for (int k = 0; k < 64; ++k)
            p.scfsi[k / 32][k % 32] = random.below(4);
        p.budget = 8 * (random.below(3) == 0 ? random.below(1728) : random.below(500));
        const auto expected = oracle::allocate(p), got = allocate(config, p);
        joint_frames += got.mode;
        tight_frames += got.left < 0;
        ASSERT_EQ(got.mode, expected.mode) << "frame " << i;
        ASSERT_EQ(got.extension, expected.extension) << "frame " << i;
        ASSERT_EQ(got.bound, std::min(expected.bound, config.sblimit)) << "frame " << i;
        ASSERT_EQ(got.left, expected.left) << "frame " << i;
        for (int k = 0; k < 64; ++k)
            ASSERT_EQ(got.allocation[k / 32][k % 32], expected.allocation[k / 32][k % 32])
                << "frame " << i;
    }
    EXPECT_GT(joint_frames, 2000);
    EXPECT_GT(tight_frames, 20);
}

TEST(crc, register_follows_the_standards_generator) {
    crc16 digits; // the published check value of this CRC
    for (const char digit : {'1', '2', '3', '4', '5', '6', '7', '8', '9'})
        digits.put(static_cast<std::uint32_t>(digit), 8);
    EXPECT_EQ(digits.value(), 0xAEE7u);
}

} // namespace
