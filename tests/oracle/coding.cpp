#include "oracle/coding.hpp"

#include "oracle/standard_tables.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace oracle {

int scalefactor_index(double maximum) {
    for (int i = 62; i > 0; --i) {
        if (scalefactor(i) >= maximum) return i;
    }
    return 0;
}

int select_scalefactors(int (&index)[3]) {
    const auto class_of = [](int d) { return d <= -3 ? 0 : d < 0 ? 1 : d == 0 ? 2 : d < 3 ? 3 : 4; };
    static constexpr int pattern_of[5][5] = {{123, 122, 122, 133, 123},
                                             {113, 111, 111, 444, 113},
                                             {111, 111, 111, 333, 113},
                                             {222, 222, 222, 333, 123},
                                             {123, 122, 122, 133, 123}};
    const int pattern = pattern_of[class_of(index[0] - index[1])][class_of(index[1] - index[2])];
    if (pattern == 444) {
        index[0] = index[1] = index[2] = std::min(index[0], index[2]);
        return 2;
    }
    // Each digit names the scale factor that a part uses.
    const int used[3] = {index[pattern / 100 - 1], index[pattern / 10 % 10 - 1],
                         index[pattern % 10 - 1]};
    std::copy(used, used + 3, index);
    return pattern == 123 ? 0 : pattern == 113 ? 1 : pattern == 122 || pattern == 133 ? 3 : 2;
}

int quantize(int layer, double x, int steps) {
    // Layer I, printed to nine decimals.
    static constexpr double printed_a[15] = {0,           0.75,        0.875,       0.9375,
                                             0.96875,     0.984375,    0.9921875,   0.99609375,
                                             0.998046875, 0.999023438, 0.999511719, 0.999755859,
                                             0.99987793,  0.999938965, 0.999969482};
    static constexpr double printed_b[15] = {0,           0.25,        0.125,       0.0625,
                                             0.03125,     0.015625,    0.0078125,   0.00390625,
                                             0.001953125, 0.000976563, 0.000488281, 0.000244141,
                                             0.00012207,  0.000061035, 0.000030518};
    const auto bits = static_cast<int>(std::bit_width(static_cast<unsigned>(steps)));
    const long double a = layer == 1 ? static_cast<long double>(printed_a[bits - 1])
                                     : std::ldexp(static_cast<long double>(steps), -bits);
    const long double b = layer == 1 ? -static_cast<long double>(printed_b[bits - 1]) : a - 1;
    // The printed A and B may add up to a little below -1.
    const long double y = std::max(a * static_cast<long double>(x) + b, -1.0L);
    const int top_bits = static_cast<int>(std::floor(std::ldexp(y, bits - 1))) & ((1 << bits) - 1);
    return std::min(top_bits ^ 1 << (bits - 1), steps - 1);
}

namespace {

struct frame {
    const allocation_problem &p;
    int sblimit = sblimit_of(p.layer, p.table);

    const quantizers &row(int sb) const { return quantizers_of(p.layer, p.table, sb); }
    int last(int sb) const { return static_cast<int>(row(sb).steps.size()) - 1; }
    int steps(int sb, int n) const { return row(sb).steps[static_cast<unsigned>(n)]; }
    double mnr(int ch, int sb, int n) const { return snr_of(steps(sb, n)) - p.smr[ch][sb]; }
    int sample_bits(int sb, int n) const {
        if (n == 0) return 0;
        if (p.layer == 1) return 12 * (n + 1);
        return 12 * (is_grouped(steps(sb, n)) ? 1 : 3) * code_bits_of(2, steps(sb, n));
    }
    int side_bits(int ch, int sb) const {
        return p.layer == 1 ? 6 : 2 + 6 * sent_per_scfsi[p.scfsi[ch][sb]];
    }
    int allocation_fields(int bound) const {
        int bits = 0;
        for (int sb = 0; sb < sblimit; ++sb)
            bits += row(sb).alloc_bits * (sb < bound ? p.channels : 1);
        return bits;
    }

    /// Bits that the frame would need if no noise were audible.
    int noiseless_bits(int bound) const {
        int total = 32 + (p.layer == 2 && p.crc ? 16 : 0) + allocation_fields(bound);
        for (int sb = 0; sb < sblimit; ++sb) {
            const int top = p.layer == 1 ? 14 : last(sb) - 1;
            const bool shared = p.channels == 2 && sb >= bound;
            for (int ch = 0; ch < (sb < bound ? p.channels : 1); ++ch) {
                int n = 0;
                while (n < top && mnr(ch, sb, n) < 0)
                    ++n;
                while (shared && n < top && mnr(1, sb, n) < 0)
                    ++n;
                if (n > 0)
                    total += sample_bits(sb, n) + side_bits(ch, sb) + (shared ? side_bits(1, sb) : 0);
            }
        }
        return total;
    }
};

void choose_bound(const frame &f, allocation_answer &answer) {
    answer.bound = f.sblimit;
    if (!f.p.joint || f.noiseless_bits(f.sblimit) <= f.p.budget) return;
    answer.mode = 1;
    answer.extension = 4;
    do {
        --answer.extension;
        answer.bound = 4 * (answer.extension + 1);
    } while (f.noiseless_bits(answer.bound) > f.p.budget && answer.extension > 0);
}

/// Calls look(channel, subband) in the order of the layer's scan.
template <class Look>
void scan(const frame &f, Look look) {
    for (int i = 0; i < f.sblimit * f.p.channels; ++i) {
        if (f.p.layer == 1) {
            look(i % f.p.channels, i / f.p.channels);
        } else {
            look(i / f.sblimit, i % f.sblimit);
        }
    }
}

} // namespace

allocation_answer allocate(const allocation_problem &problem) {
    const frame f{problem};
    allocation_answer answer;
    choose_bound(f, answer);
    auto &allocation = answer.allocation;
    answer.left = problem.budget - 32 - (problem.crc ? 16 : 0) - f.allocation_fields(answer.bound);
    double mnr[2][32];
    bool closed[2][32] = {};
    scan(f, [&](int ch, int sb) { mnr[ch][sb] = f.mnr(ch, sb, 0); });
    for (;;) {
        double best = problem.layer == 1 ? mnr[0][0] + 1.0 : 999999.0;
        int ch = -1, sb = -1;
        scan(f, [&](int c, int s) {
            if (closed[c][s] || mnr[c][s] >= best) return;
            best = mnr[c][s];
            ch = c;
            sb = s;
        });
        if (ch < 0) return answer;
        const bool shared = problem.channels == 2 && sb >= answer.bound;
        const int n = allocation[ch][sb];
        int cost = f.sample_bits(sb, n + 1) - f.sample_bits(sb, n);
        if (n == 0) cost += f.side_bits(ch, sb) + (shared ? f.side_bits(1 - ch, sb) : 0);
        const bool granted = cost <= answer.left;
        if (granted) answer.left -= cost;
        for (int c = 0; c < 2; ++c) {
            if (c != ch && !shared) continue;
            if (granted) allocation[c][sb] = n + 1;
            if (granted) mnr[c][sb] = f.mnr(c, sb, n + 1);
            closed[c][sb] = !granted || n + 1 == f.last(sb);
        }
    }
}

} // namespace oracle
