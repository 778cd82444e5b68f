#include "oracle/steps.hpp"
#include "parser/standard_tables.hpp"

#include <algorithm>
#include <cmath>
#include <map>

namespace oracle {

using namespace tools;

int scalefactor_index(double maximum) {
    int i = 62;
    while (i > 0 && scalefactor(i) < maximum)
        --i;
    return i;
}

int select_scalefactors(int (&index)[3]) {
    const auto class_of = [](int d) { return d <= -3 ? 0 : d < 0 ? 1 : d == 0 ? 2 : d < 3 ? 3 : 4; };
    static constexpr int pattern_of[5][5] = {{123, 122, 122, 133, 123},
                                             {113, 111, 111, 444, 113},
                                             {111, 111, 111, 333, 113},
                                             {222, 222, 222, 333, 123},
                                             {123, 122, 122, 133, 123}};
    const int pattern = pattern_of[class_of(index[0] - index[1])][class_of(index[1] - index[2])];
    // Each digit names the scale factor that a part uses; 4 is the greater one of the first and third.
    const int choice[] = {index[0], index[1], index[2], std::min(index[0], index[2])};
    index[0] = choice[pattern / 100 - 1];
    index[1] = choice[pattern / 10 % 10 - 1];
    index[2] = choice[pattern % 10 - 1];
    return pattern == 123 ? 0 : pattern == 113 ? 1 : pattern == 122 || pattern == 133 ? 3 : 2;
}

int quantize(int layer, double x, int steps) {
    const int bits = code_bits_of(1, steps), range = 1 << bits;
    // A and B of Layer I are printed to nine decimals; they may add up to a little below -1.
    const auto printed = [layer](double v) { return layer == 1 ? std::floor(v * 1e9 + 0.5) / 1e9 : v; };
    const long double a = printed(1.0 * steps / range), b = -printed(1.0 * (range - steps) / range);
    const long double y =
        std::clamp(a * static_cast<long double>(x) + b, -1.0L, 1 - std::ldexp(1.0L, -bits));
    const int top_bits = static_cast<int>(std::floor(std::ldexp(y, bits - 1))) & (range - 1);
    return std::min(top_bits ^ range / 2, steps - 1);
}

namespace {

/// Signal-to-noise ratio in dB by steps, Table C.5; 0 for no steps.
double snr_of(int steps) {
    static const std::map<int, double> table{
        {0, 0.00},     {3, 7.00},     {5, 11.00},    {7, 16.00},     {9, 20.84},     {15, 25.28},
        {31, 31.59},   {63, 37.75},   {127, 43.84},  {255, 49.89},   {511, 55.93},   {1023, 61.96},
        {2047, 67.98}, {4095, 74.01}, {8191, 80.03}, {16383, 86.05}, {32767, 92.01}, {65535, 98.01}};
    return table.at(steps);
}

struct frame {
    const allocation_problem &p;
    int sblimit = sblimit_of(p.layer, p.table);

    const quantizers &row(int sb) const { return quantizers_of(p.layer, p.table, sb); }
    int last(int sb) const { return static_cast<int>(row(sb).steps.size()) - 1; }
    int steps(int sb, int n) const { return row(sb).steps[static_cast<unsigned>(n)]; }
    double mnr(int ch, int sb, int n) const { return snr_of(steps(sb, n)) - p.smr[ch][sb]; }
    int sample_bits(int sb, int n) const {
        const int words = p.layer == 1 || is_grouped(2, steps(sb, n)) ? 12 : 36;
        return n == 0 ? 0 : words * code_bits_of(p.layer, steps(sb, n));
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
                while (n < top && (mnr(ch, sb, n) < 0 || (shared && mnr(1, sb, n) < 0)))
                    ++n;
                if (n > 0)
                    total += sample_bits(sb, n) + side_bits(ch, sb) + (shared ? side_bits(1, sb) : 0);
            }
        }
        return total;
    }

    void choose_bound(allocation_answer &answer) const {
        answer.bound = sblimit;
        if (!p.joint || noiseless_bits(sblimit) <= p.budget) return;
        answer.mode = 1;
        for (answer.extension = 3;; --answer.extension) {
            answer.bound = 4 * (answer.extension + 1);
            if (noiseless_bits(answer.bound) <= p.budget || answer.extension == 0) return;
        }
    }
};

} // namespace

int noiseless_bits(const allocation_problem &p, int bound) {
    return frame{p}.noiseless_bits(bound);
}

allocation_answer allocate(const allocation_problem &p) {
    allocation_answer answer;
    frame{p}.choose_bound(answer);
    grant(p, answer);
    return answer;
}

void grant(const allocation_problem &p, allocation_answer &answer) {
    const frame f{p};
    answer.left = p.budget - 32 - (p.crc ? 16 : 0) - f.allocation_fields(answer.bound);
    bool closed[2][32] = {};
    const auto mnr_of = [&](int ch, int sb) { return f.mnr(ch, sb, answer.allocation[ch][sb]); };
    for (;;) {
        double best = p.layer == 1 ? mnr_of(0, 0) + 1.0 : 999999.0;
        int ch = -1, sb = -1;
        // Layer I looks at one subband after the other, Layer II at one channel after the other.
        for (int i = 0; i < f.sblimit * p.channels; ++i) {
            const int c = p.layer == 1 ? i % p.channels : i / f.sblimit;
            const int s = p.layer == 1 ? i / p.channels : i % f.sblimit;
            if (closed[c][s] || mnr_of(c, s) >= best) continue;
            best = mnr_of(c, s);
            ch = c;
            sb = s;
        }
        if (ch < 0) return;
        const bool shared = p.channels == 2 && sb >= answer.bound;
        const int n = answer.allocation[ch][sb];
        int cost = f.sample_bits(sb, n + 1) - f.sample_bits(sb, n);
        if (n == 0) cost += f.side_bits(ch, sb) + (shared ? f.side_bits(1 - ch, sb) : 0);
        const bool granted = cost <= answer.left;
        if (granted) answer.left -= cost;
        for (int c = shared ? 0 : ch; c <= (shared ? 1 : ch); ++c) {
            if (granted) answer.allocation[c][sb] = n + 1;
            closed[c][sb] = !granted || n + 1 == f.last(sb);
        }
    }
}

} // namespace oracle
