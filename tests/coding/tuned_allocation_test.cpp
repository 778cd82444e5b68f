// The tuned scale factors and allocation against searches that try everything.
#include "coding/bit_allocation.hpp"
#include "coding/frame_bits.hpp"
#include "coding/scalefactor_table.hpp"
#include "coding/scalefactors.hpp"
#include "coding/tuned_allocation.hpp"
#include "coding/tuned_scalefactors.hpp"
#include "host/encoding.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

using namespace vela;

std::mt19937 chance(5);

/// A frame of random samples whose levels differ between subbands, parts and channels.
struct frame {
    frame_header header{};
    coder_config config;
    subband_samples samples{};
    part_samples joint[3]{};
    noise_weights weights{};
    side_info side{};
    channel_scalefactors shared{};

    /// @param audible  subbands above that one are silent
    frame(int layer, int mode, int bitrate, int audible) {
        header.layer = static_cast<std::uint8_t>(layer);
        header.mode = static_cast<std::uint8_t>(mode);
        header.bitrate_index = static_cast<std::uint8_t>(bitrate);
        header.sampling_frequency = 1;
        config = make_coder_config(header);
        std::normal_distribution<double> normal;
        const double likeness = chance() % 2 == 0 ? 0 : 1;
        for (int i = 0; i < 2 * 3 * 32; ++i) {
            const int ch = i / 96, part = i / 32 % 3, sb = i % 32;
            const double level = sb < audible ? 0.1 * std::exp2(-sb / 4.0 + 2 * normal(chance)) : 0;
            weights[ch][part][sb] = std::exp2(3 * normal(chance));
            for (int j = 0; j < 12; ++j) {
                const double common = ch == 1 ? likeness * samples[0][part][j][sb] : 0;
                samples[ch][part][j][sb] = common + std::clamp(level * normal(chance), -0.9, 0.9);
            }
        }
        for (int part = 0; part < config.parts(); ++part) {
            const auto &kernels = coding_kernels_of(level::reference);
            kernels.combine(samples[0][part], samples[1][part], joint[part]);
            compute_scalefactors(kernels, joint[part], side.joint_index[part]);
            for (int ch = 0; ch < config.channels; ++ch)
                compute_scalefactors(kernels, samples[ch][part], side.scalefactor[ch][part]);
        }
    }

    /// The weighted noise of one channel in a subband with an allocation index.
    double cost(const channel_scalefactors &used, int ch, int sb, unsigned n, bool is_shared) const {
        const int steps = n == 0 ? 0 : quant_classes[config.table->row(sb).classes[n]].steps;
        double sum = 0;
        for (int part = 0; part < config.parts(); ++part) {
            const double scale = scalefactor_table[used.scalefactor[ch][part][sb]];
            const double normal = is_shared ? scalefactor_table[side.joint_index[part][sb]] : scale;
            double noise = 0, energy = 0;
            for (int j = 0; j < 12; ++j) {
                const double x = samples[ch][part][j][sb];
                const double z = (is_shared ? joint[part][j][sb] : x) / normal;
                double decoded = z;
                if (steps > 0 && steps <= 9) {
                    for (int i = 0; i < steps; ++i) {
                        const double level = (2.0 * i + 1) / steps - 1;
                        if (i == 0 || std::abs(z - level) < std::abs(z - decoded)) decoded = level;
                    }
                }
                energy += x * x;
                noise += std::pow(x - scale * decoded, 2);
            }
            if (steps > 9) noise += 4 * scale * scale / steps / steps;
            if (steps > 9 && !is_shared) noise = std::min(noise, energy);
            sum += weights[ch][part][sb] * (steps == 0 ? energy : noise);
        }
        return sum;
    }
};

/// What one allocation field decides about.
struct unit {
    int ch, sb;
    std::vector<double> cost;
    std::vector<int> bits;
    unsigned at = 0;
};

std::vector<unit> units_of(const frame &f, int bound) {
    std::vector<unit> units;
    for (int i = 0; i < 64; ++i) {
        const int ch = i / 32, sb = i % 32;
        const bool is_shared = sb >= bound;
        if (sb >= f.config.sblimit || ch >= (is_shared ? 1 : f.config.channels)) continue;
        const alloc_row &row = f.config.table->row(sb);
        const channel_scalefactors &used = is_shared ? f.shared : f.side;
        unit u{ch, sb, {}, {}};
        for (unsigned n = 0; n <= static_cast<unsigned>(row.last); ++n) {
            const int opening =
                side_bits(f.config, used, ch, sb) + (is_shared ? side_bits(f.config, used, 1, sb) : 0);
            u.bits.push_back(n == 0 ? 0 : row.sample_bits[n] + opening);
            u.cost.push_back(f.cost(used, ch, sb, n, is_shared)
                             + (is_shared ? f.cost(used, 1, sb, n, true) : 0));
        }
        units.push_back(u);
    }
    return units;
}

double total(const std::vector<unit> &units) {
    double sum = 0;
    for (const unit &u : units)
        sum += u.cost[u.at];
    return sum;
}

/// Again and again the best of all steps that fit. Returns the bits left.
int climb(std::vector<unit> &units, int bits) {
    while (true) {
        double best = 0;
        unit *who = nullptr;
        unsigned where = 0;
        for (unit &u : units) {
            for (unsigned n = u.at + 1; n < u.cost.size(); ++n) {
                const int more = u.bits[n] - u.bits[u.at];
                const double slope = (u.cost[u.at] - u.cost[n]) / more;
                if (more > bits || slope <= best) continue;
                best = slope;
                who = &u;
                where = n;
            }
        }
        if (who == nullptr) return bits;
        bits -= who->bits[where] - who->bits[who->at];
        who->at = where;
    }
}

/// The default search, with the costs of no bits for its signal-to-mask ratios. Returns the bits left.
int by_ratio(const frame &f, std::vector<unit> &units, int bound, int budget) {
    side_info side = f.side;
    side.joint_bound = bound;
    for (int k = 0; k < 2 * 32; ++k) {
        const int ch = k / 32, sb = k % 32;
        if (sb < bound) continue;
        side.scfsi[ch][sb] = f.shared.scfsi[ch][sb];
        for (int part = 0; part < 3; ++part)
            side.scalefactor[ch][part][sb] = f.shared.scalefactor[ch][part][sb];
    }
    smr_table smr{};
    for (const unit &u : units) {
        smr[u.ch][u.sb] = 10 * std::log10(std::max(u.cost[0], 1e-200));
        if (u.sb >= bound) smr[1][u.sb] = smr[0][u.sb];
    }
    double hint = 0;
    const int left = allocate_bits(f.config, smr, budget, side, hint);
    for (unit &u : units)
        u.at = side.allocation[u.ch][u.sb];
    return left;
}

/// The least cost within a number of bits, trying everything from unit `first` on.
double least(const std::vector<unit> &units, int bits, std::size_t first = 0) {
    if (first == units.size()) return 0;
    double best = std::numeric_limits<double>::max();
    for (std::size_t n = 0; n < units[first].cost.size(); ++n) {
        if (units[first].bits[n] <= bits)
            best = std::min(best, units[first].cost[n]
                                      + least(units, bits - units[first].bits[n], first + 1));
    }
    return best;
}

void expect_selection(const frame &f, const side_info &raw, int ch, int sb) {
    double noise[4] = {};
    for (int scfsi = 0; scfsi < 4; ++scfsi) {
        for (int part = 0; part < 3; ++part) {
            std::uint8_t index = raw.scalefactor[ch][part][sb];
            for (int other = 0; other < 3; ++other) {
                const int early = std::min(part, other), late = std::max(part, other);
                if (scfsi == 2 || (scfsi == 1 && late < 2) || (scfsi == 3 && early > 0))
                    index = std::min(index, raw.scalefactor[ch][other][sb]);
            }
            EXPECT_TRUE(scfsi != f.side.scfsi[ch][sb] || f.side.scalefactor[ch][part][sb] == index);
            noise[scfsi] += f.weights[ch][part][sb] * std::pow(scalefactor_table[index], 2);
        }
        noise[scfsi] *= std::pow(4, 6 * scalefactors_per_scfsi[static_cast<unsigned>(scfsi)] / 36.0);
    }
    EXPECT_LE(noise[f.side.scfsi[ch][sb]], *std::ranges::min_element(noise) * (1 + 1e-12));
}

constexpr int longest_step = 16 * 36 + 20;

TEST(tuned_allocation, is_the_search_that_tries_every_step_or_the_default_where_that_costs_less) {
    int joint_frames = 0, by_ratio_frames = 0;
    for (int i = 0; i < 1000; ++i) {
        frame f(1 + i % 2, i / 2 % 4, 5 + i % 9, i % 5 == 0 ? 3 : 32);
        const side_info raw = f.side;
        const coder_config &config = f.config;
        if (config.layer == 2) choose_tuned_scfsi(config, f.weights, f.side);
        for (int k = 0; k < (config.layer == 2 ? config.channels * config.sblimit : 0); ++k)
            expect_selection(f, raw, k % config.channels, k / config.channels);
        const bool joint = config.mode == MPEG_A_MODE_JOINT_STEREO;
        if (joint) {
            choose_shared_scalefactors(
                {coding_kernels_of(level::reference), config, f.samples, f.joint, f.weights},
                f.side.joint_index, f.shared);
        }
        const int budget = 8 * static_cast<int>(10 + chance() % (i % 3 == 0 ? 200 : 1000));
        std::vector<unit> best;
        int bound = config.sblimit, left = 0;
        for (const int tried : {32, 16, 12, 8, 4}) {
            if (tried < 32 && (!joint || tried >= config.sblimit)) continue;
            std::vector<unit> units = units_of(f, tried);
            const int rest = climb(units, budget - fixed_bits(config, std::min(tried, config.sblimit)));
            if (!best.empty() && total(units) >= total(best) * (1 - 1e-9)) continue;
            best = units;
            bound = std::min(tried, config.sblimit);
            left = rest;
        }
        joint_frames += bound < config.sblimit;
        std::vector<unit> other = best;
        const int rest = by_ratio(f, other, bound, budget);
        if (total(other) < total(best) * (1 - 1e-9)) {
            best = other;
            left = rest;
            ++by_ratio_frames;
        }
        const double elsewhere = std::exp2(static_cast<int>(chance() % 60) - 30);
        for (const level which : mp1a_test::levels()) {
            side_info got = f.side;
            frame_header header = f.header;
            double hint = elsewhere;
            ASSERT_EQ(allocate_tuned({coding_kernels_of(which), config, f.samples, f.joint, f.weights},
                                     budget, header, got, hint),
                      left)
                << i;
            ASSERT_EQ(got.joint_bound, bound) << i;
            for (const unit &u : best)
                ASSERT_EQ(got.allocation[u.ch][u.sb], u.at) << i << ", subband " << u.sb;
        }
        // It is as good as anything that wants no more bits than it took up to the first step too dear.
        if (i % 5 == 0 && config.channels == 1) {
            const int spent = budget - fixed_bits(config, config.sblimit) - longest_step;
            const std::vector<unit> audible(best.begin(), best.begin() + 3);
            EXPECT_LE(total(best), least(audible, std::max(spent, 0)) * (1 + 1e-9)) << i;
        }
    }
    EXPECT_GT(joint_frames, 50);
    EXPECT_GT(by_ratio_frames, 10);
}

} // namespace
