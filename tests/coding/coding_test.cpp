// Scale factors and bit allocation against ISO/IEC 11172-3's wording, on more than real frames hold.
#include "coding/bit_allocation.hpp"
#include "coding/scalefactors.hpp"
#include "coding/tuned_allocation.hpp"
#include "coding/tuned_scalefactors.hpp"
#include "host/encoding.hpp"
#include "oracle/tuned.hpp"
#include "parser/standard_tables.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

using namespace vela;

TEST(scalefactors, index_is_the_last_one_that_reaches_the_maximum) {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> exponent(-25, 2);
    std::vector<double> maxima{2.5, 1e30, INFINITY, 0.0, 5e-324, 1e-300};
    for (int i = 0; i < 2000; ++i)
        maxima.push_back(std::exp2(exponent(random)));
    for (int i = 0; i < 63; ++i) {
        const double factor = tools::scalefactor(i);
        maxima.insert(maxima.end(), {factor, std::nextafter(factor, 0), std::nextafter(factor, 3)});
    }
    for (const double maximum : maxima)
        EXPECT_EQ(scalefactor_index(maximum), oracle::scalefactor_index(maximum)) << maximum;
}

TEST(scalefactors, selection_of_every_triple_is_that_of_the_table) {
    for (int i = 0; i < 63 * 63 * 63; ++i) {
        int expected[3] = {i % 63, i / 63 % 63, i / 63 / 63};
        std::uint8_t got[3];
        std::copy_n(expected, 3, got);
        const int scfsi = oracle::select_scalefactors(expected);
        ASSERT_EQ(choose_scfsi(got[0], got[1], got[2]), scfsi) << i;
        ASSERT_TRUE(std::equal(got, got + 3, expected)) << i;
    }
}

std::mt19937 dice(11);

int below(int n) {
    return static_cast<int>(dice() % static_cast<unsigned>(n));
}

/// Ratios spread out, on a grid with ties, all the same, falling steeply, alike in both, one far off.
void fill(double (&smr)[2][32]) {
    const int kind = below(6);
    std::uniform_real_distribution<double> uniform(-30, 90);
    const double level = uniform(dice);
    for (int i = 0; i < 64; ++i) {
        const double value = uniform(dice);
        const double values[] = {value,
                                 std::round(value / 7) * 7,
                                 level,
                                 level - 6 * (i % 32) + value / 10,
                                 i < 32 ? value : smr[0][i % 32],
                                 value};
        smr[i / 32][i % 32] = values[kind];
    }
    if (kind == 5) smr[below(2)][below(2) * below(32)] = below(2) ? 160 : -160;
}

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
    for (const int bound : {4, 16, config.sblimit}) {
        if (p.channels == 1) continue;
        EXPECT_EQ(demanded_bits(config, smr, side, std::min(bound, config.sblimit)),
                  oracle::noiseless_bits(p, bound));
    }
    if (p.joint) choose_joint_bound(config, smr, p.budget, header, side);
    // Wherever the search is told to look first, it finds the same: a hint from anywhere will do.
    double ratio_hint = p.smr[0][p.budget % 32];
    const int left = allocate_bits(config, smr, p.budget, side, ratio_hint);
    oracle::allocation_answer answer{header.mode, header.mode_extension, side.joint_bound, left};
    for (int ch = 0; ch < config.channels; ++ch)
        std::copy_n(side.allocation[ch], config.sblimit, answer.allocation[ch]);
    return answer;
}

TEST(bit_allocation, bound_picks_ties_and_rest_equal_the_search_as_worded) {
    constexpr int rates[3] = {44100, 48000, 32000}; // by sampling_frequency
    int joint_frames = 0, tight_frames = 0;
    for (int i = 0; i < 16000; ++i) {
        const auto pick = [](int least, int n) { return static_cast<std::uint8_t>(least + below(n)); };
        frame_header header{};
        header.layer = pick(1, 2);
        header.mode = pick(0, 4);
        header.bitrate_index = pick(1, 14);
        header.sampling_frequency = pick(0, 3);
        header.error_protection = pick(0, 2);
        const coder_config config = make_coder_config(header);
        oracle::allocation_problem p{header.layer, header.mode == 3 ? 1 : 2,
                                     header.error_protection == 1, header.mode == 1};
        const int kbps = tools::bitrate_of(p.layer, header.bitrate_index);
        p.table = tools::table_of(rates[header.sampling_frequency], kbps / p.channels);
        fill(p.smr);
        for (int k = 0; k < 64; ++k)
            p.scfsi[k / 32][k % 32] = below(4);
        p.budget = 8 * (below(3) == 0 ? below(1728) : below(500));
        auto expected = oracle::allocate(p);
        expected.bound = std::min(expected.bound, config.sblimit);
        joint_frames += expected.mode;
        tight_frames += expected.left < 0;
        ASSERT_TRUE(allocate(config, p) == expected) << "frame " << i;
    }
    EXPECT_GT(joint_frames, 800);
    EXPECT_GT(tight_frames, 8);
}

/// Samples whose levels differ between subbands, parts and channels, which may be alike.
oracle::tuned_problem random_problem(int layer, int mode, int bitrate) {
    oracle::tuned_problem p{
        {layer, mode == MPEG_A_MODE_MONO ? 1 : 2, below(2) == 1, mode == 1}, {}, {}, {}, 0, {}};
    p.table = tools::table_of(48000, tools::bitrate_of(layer, bitrate) / p.channels);
    p.budget = 8 * (40 + below(below(3) == 0 ? 200 : 1000));
    std::normal_distribution<double> normal;
    const int likeness = below(2), audible = below(4) == 0 ? 3 : 32;
    for (int i = 0; i < 3 * 3 * 32; ++i) {
        const int ch = i / 96, part = i / 32 % 3, sb = i % 32;
        const double loudness = sb < audible ? 0.1 * std::exp2(-sb / 4.0 + 2 * normal(dice)) : 0;
        if (ch < 2) p.weights[ch][part][sb] = std::exp2(3 * normal(dice));
        double peak = 0;
        for (int j = 12 * part; j < 12 * part + 12; ++j) {
            const double left = p.samples[0][j][sb], right = p.samples[1][j][sb];
            const double own = (ch == 1) * likeness * left + loudness * normal(dice);
            p.samples[ch][j][sb] = ch == 2 ? (left + right) / 2 : std::clamp(own, -0.9, 0.9);
            peak = std::max(peak, std::fabs(p.samples[ch][j][sb]));
        }
        p.index[ch][sb][part] = oracle::scalefactor_index(peak);
    }
    p.padding = below(2) * (layer == 1 ? 32 : 8);
    p.budget += p.padding;
    p.before.resize(tuned::remembered_frames);
    for (oracle::tuned_past &past : p.before) {
        for (int k = 0; k < 3 * 32; ++k) {
            if (k / 32 == 2 ? !p.joint : k / 32 >= p.channels) continue;
            past.weak[k / 32][k % 32] = below(4) > 0;
            past.strong[k / 32][k % 32] = below(8) == 0;
        }
        for (double &excess : past.excess)
            excess = below(100) / 1000.0;
    }
    return p;
}

/// The encoder's answer, wherever it looks first.
oracle::tuned_answer answer_of(const coder_config &config, const oracle::tuned_problem &p,
                               level which) {
    subband_samples samples;
    part_samples joint[3];
    side_info side{};
    std::memcpy(samples, p.samples, sizeof samples);
    std::memcpy(joint, p.samples[2], sizeof joint);
    for (int i = 0; i < 3 * 3 * 32; ++i) {
        const int ch = i / 96, part = i / 32 % 3, sb = i % 32;
        (ch == 2 ? side.joint_index[part] : side.scalefactor[ch][part])[sb] =
            static_cast<std::uint8_t>(p.index[ch][sb][part]);
    }
    frame_header header{};
    header.padding = p.padding > 0;
    tuned_memory memory{.slope_hint = std::exp2(below(60) - 30)};
    for (std::size_t k = 0; k < p.before.size(); ++k) {
        for (int i = 0; i < 3 * 32; ++i) {
            const int row = i / 32, sb = i % 32;
            memory.before[k].strong[row] |= std::uint32_t{p.before[k].strong[row][sb]} << sb;
            memory.before[k].weak[row] |= std::uint32_t{p.before[k].weak[row][sb]} << sb;
        }
        std::ranges::copy(p.before[k].excess, memory.before[k].excess);
    }
    const weighed_frame frame{coding_kernels_of(which), config, samples, joint, p.weights};
    tuned_frame weighed;
    weigh_frame(frame, side, weighed);
    oracle::tuned_answer answer;
    answer.left = allocate_tuned(frame, p.budget, header, weighed, side, memory);
    for (int i = 0; i < 3 * 32; ++i) {
        const int row = i / 32, sb = i % 32;
        answer.now.strong[row][sb] = memory.before[0].strong[row] >> sb & 1;
        answer.now.weak[row][sb] = memory.before[0].weak[row] >> sb & 1;
    }
    answer.mode = header.mode;
    answer.extension = header.mode_extension;
    answer.bound = side.joint_bound;
    for (int i = 0; i < p.channels * config.sblimit; ++i) {
        const int ch = i / config.sblimit, sb = i % config.sblimit;
        answer.allocation[ch][sb] = side.allocation[ch][sb];
        answer.scfsi[ch][sb] = side.scfsi[ch][sb];
        for (int part = 0; part < config.parts(); ++part)
            answer.index[ch][sb][part] = side.scalefactor[ch][part][sb];
    }
    return answer;
}

TEST(tuned_coding, equals_the_search_that_tries_every_step) {
    int joint_frames = 0;
    for (int i = 0; i < 600; ++i) {
        frame_header header{};
        header.layer = static_cast<std::uint8_t>(1 + i % 2);
        header.mode = static_cast<std::uint8_t>(i / 2 % 4);
        header.bitrate_index = static_cast<std::uint8_t>(5 + i % 9);
        header.sampling_frequency = 1;
        const oracle::tuned_problem p = random_problem(header.layer, header.mode, header.bitrate_index);
        header.error_protection = p.crc;
        const coder_config config = make_coder_config(header);
        oracle::tuned_problem solved = p;
        const oracle::tuned_answer expected = oracle::allocate(solved);
        joint_frames += expected.mode;
        for (const level which : mp1a_test::levels())
            ASSERT_TRUE(answer_of(config, p, which) == expected) << i;
    }
    EXPECT_GT(joint_frames, 50);
}

} // namespace
