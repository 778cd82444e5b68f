// The tuned allocation as docs/sound.md words it.
#include "oracle/tuned.hpp"
#include "parser/standard_tables.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace oracle {
namespace {

using namespace tools;

constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr double less = 1 - 1e-9; ///< so much less that no rounding decides

double scale_of(int index) {
    static const std::vector<double> all = [] {
        std::vector<double> scales;
        for (int i = 0; i < 63; ++i)
            scales.push_back(scalefactor(i));
        return scales;
    }();
    return all[index];
}

/// What one allocation field decides about.
struct unit {
    int ch, sb;
    bool shared;
    std::vector<double> cost;
    std::vector<int> bits;
    int at = 0;
};

struct coder {
    const tuned_problem &p;
    int bound;
    tuned_answer a{};
    int sblimit = sblimit_of(p.layer, p.table), parts = p.layer == 1 ? 1 : 3;
    std::vector<unit> units{};

    bool is_shared(int sb) const { return p.joint && sb >= bound; }

    double sum(int one, int other, int part, int sb) const {
        double products = 0;
        for (int j = 12 * part; j < 12 * part + 12; ++j)
            products += p.samples[one][j][sb] * p.samples[other][j][sb];
        return products;
    }

    /// The scale factor nearest to the least squares' one over the parts for which `in` holds.
    int fitted(int ch, int sb, const auto &in) const {
        double product = 0, square = 0;
        for (int part = 0; part < parts; ++part) {
            if (!in(part)) continue;
            const double scale = scale_of(p.index[2][sb][part]);
            product += p.weights[ch][part][sb] * sum(ch, 2, part, sb) / scale;
            square += p.weights[ch][part][sb] * sum(2, 2, part, sb) / scale / scale;
        }
        if (product <= 0) return 62;
        // Scale factors are 2^(1 - i / 3).
        return static_cast<int>(std::clamp(std::round(3 - 3 * std::log2(product / square)), 0.0, 62.0));
    }

    /// Weighted noise of a choice of scale factors, without what its bits cost; of a shared subband with a
    /// quantizer of 9 steps.
    double noise(int ch, int sb, const int (&index)[3], double price) const {
        double total = 0;
        for (int part = 0; part < parts; ++part) {
            const double s = scale_of(index[part]), scale = scale_of(p.index[2][sb][part]);
            double part_noise = s * s;
            if (is_shared(sb))
                part_noise = sum(ch, ch, part, sb) - 2 * s * sum(ch, 2, part, sb) / scale
                             + s * s * (sum(2, 2, part, sb) / scale / scale + 4.0 / 81 * price);
            total += p.weights[ch][part][sb] * part_noise;
        }
        return is_shared(sb) ? total : total * price;
    }

    /// Parts that the selection has sent together take one scale factor.
    void choose_scalefactors(int ch, int sb) {
        double least = infinite;
        for (const int scfsi : {2, 1, 3, 0}) {
            if (p.layer == 1 && scfsi != 0) continue;
            int index[3] = {};
            for (int part = 0; part < parts; ++part) {
                const auto together = [&](int other) {
                    const int early = std::min(part, other), late = std::max(part, other);
                    return early == late || scfsi == 2 || (scfsi == 1 && late < 2)
                           || (scfsi == 3 && early > 0);
                };
                index[part] = p.index[ch][sb][part];
                for (int other = 0; other < parts; ++other)
                    if (together(other)) index[part] = std::min(index[part], p.index[ch][sb][other]);
                if (is_shared(sb)) index[part] = fitted(ch, sb, together);
            }
            const int sent = sent_per_scfsi[scfsi];
            const double value =
                noise(ch, sb, index, is_shared(sb) ? 1 + 0.231 * sent : std::pow(4, 6 * sent / 36.0));
            if (value >= least * less) continue;
            least = value;
            a.scfsi[ch][sb] = scfsi;
            std::copy_n(index, 3, a.index[ch][sb]);
        }
    }

    /// Weighted noise of one channel's subband with a quantizer.
    double cost(int ch, int sb, int steps) const {
        double total = 0;
        for (int part = 0; part < parts; ++part) {
            const double scale = scale_of(a.index[ch][sb][part]);
            const double normal = is_shared(sb) ? scale_of(p.index[2][sb][part]) : scale;
            double lost = 0, energy = 0;
            for (int j = 12 * part; j < 12 * part + 12; ++j) {
                const double x = p.samples[ch][j][sb];
                const double z = p.samples[is_shared(sb) ? 2 : ch][j][sb] / normal;
                double decoded = steps > 9 ? z : infinite;
                for (int i = 0; i < steps && steps <= 9; ++i) {
                    const double level = (2.0 * i + 1) / steps - 1;
                    if (std::abs(z - level) < std::abs(z - decoded)) decoded = level;
                }
                energy += x * x;
                lost += std::pow(x - scale * decoded, 2);
            }
            if (steps > 9) lost += 4 * scale * scale / steps / steps;
            if (steps > 9 && !is_shared(sb)) lost = std::min(lost, energy);
            total += p.weights[ch][part][sb] * (steps == 0 ? energy : lost);
        }
        return total;
    }

    int side_bits(int ch, int sb) const {
        return p.layer == 1 ? 6 : 2 + 6 * sent_per_scfsi[a.scfsi[ch][sb]];
    }

    void list_units() {
        a.left = p.budget - 32 - (p.crc ? 16 : 0);
        for (int sb = 0; sb < sblimit; ++sb) {
            const quantizers &row = quantizers_of(p.layer, p.table, sb);
            for (int ch = 0; ch < p.channels; ++ch)
                choose_scalefactors(ch, sb);
            for (int ch = 0; ch < (is_shared(sb) ? 1 : p.channels); ++ch) {
                unit u{ch, sb, is_shared(sb), {}, {}};
                a.left -= row.alloc_bits;
                for (const int steps : row.steps) {
                    const int words = p.layer == 1 || is_grouped(2, steps) ? 12 : 36;
                    const int opening = side_bits(ch, sb) + (u.shared ? side_bits(1, sb) : 0);
                    u.bits.push_back(steps == 0 ? 0 : words * code_bits_of(p.layer, steps) + opening);
                    u.cost.push_back(cost(ch, sb, steps) + (u.shared ? cost(1, sb, steps) : 0));
                }
                units.push_back(u);
            }
        }
    }

    double total() const {
        double sum = 0;
        for (const unit &u : units)
            sum += u.cost[u.at];
        return sum;
    }

    /// Again and again the best of all steps that fit.
    void climb() {
        while (true) {
            double best = 0;
            unit *who = nullptr;
            int where = 0;
            for (unit &u : units) {
                for (int n = u.at + 1; n < static_cast<int>(u.cost.size()); ++n) {
                    const int more = u.bits[n] - u.bits[u.at];
                    const double slope = (u.cost[u.at] - u.cost[n]) / more;
                    if (more > a.left || slope <= best) continue;
                    best = slope;
                    who = &u;
                    where = n;
                }
            }
            if (who == nullptr) return;
            a.left -= who->bits[where] - who->bits[who->at];
            who->at = where;
        }
    }

    /// The default's search on costs of no bits for ratios, where that comes to less.
    void try_ratios() {
        const double before = total();
        allocation_problem plain = p;
        allocation_answer answer;
        answer.bound = std::min(bound, sblimit);
        for (unit &u : units) {
            plain.smr[u.ch][u.sb] = 10 * std::log10(std::max(u.cost[0], 1e-200));
            if (u.shared) plain.smr[1][u.sb] = plain.smr[0][u.sb];
        }
        std::copy_n(&a.scfsi[0][0], 64, &plain.scfsi[0][0]);
        grant(plain, answer);
        const std::vector<unit> climbed = units;
        for (unit &u : units)
            u.at = answer.allocation[u.ch][u.sb];
        if (total() < before * less) {
            a.left = answer.left;
        } else {
            units = climbed;
        }
    }
};

} // namespace

tuned_answer allocate(const tuned_problem &p) {
    coder best{p, 32};
    best.list_units();
    best.climb();
    for (const int bound : {16, 12, 8, 4}) {
        if (!p.joint || bound >= best.sblimit) continue;
        coder tried{p, bound};
        tried.list_units();
        tried.climb();
        if (tried.total() >= best.total() * less) continue;
        best.bound = bound;
        best.a = tried.a;
        best.units = tried.units;
        best.a.mode = 1;
        best.a.extension = bound / 4 - 1;
    }
    best.try_ratios();
    best.a.bound = std::min(best.bound, best.sblimit);
    for (const unit &u : best.units) {
        best.a.allocation[u.ch][u.sb] = u.at;
        if (u.shared) best.a.allocation[1][u.sb] = u.at;
    }
    return best.a;
}

} // namespace oracle
