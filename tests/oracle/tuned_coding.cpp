// The tuned allocation as docs/sound.md words it.
#include "oracle/tuned.hpp"
#include "parser/standard_tables.hpp"

#include <algorithm>
#include <array>
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

/// Parts that a selection has sent together.
bool is_together(int scfsi, int part, int other) {
    const int early = std::min(part, other), late = std::max(part, other);
    return early == late || scfsi == 2 || (scfsi == 1 && late < 2) || (scfsi == 3 && early > 0);
}

/// How a subband's scale factors are sent.
struct choice {
    int scfsi = 0, index[3] = {};
};

/// What one allocation field decides about.
struct unit {
    int row = 0, sb = 0; ///< row 2: what the channels share
    std::span<const int> steps;
    std::vector<int> bits;
    std::vector<double> cost;
    choice ternary, finer[2];
    double shared[36] = {}; ///< as quantized, before a channel's scale factor
    int at = 0;

    bool is_shared() const { return row == 2; }
    /// The slope below which there are bits.
    double first_slope() const {
        double slope = 0;
        for (std::size_t n = 1; n < cost.size(); ++n)
            slope = std::max(slope, (cost[0] - cost[n]) / bits[n]);
        return slope;
    }
    /// What to have where every bit is worth a slope.
    std::size_t reached(double slope) const {
        std::size_t best = 0;
        for (std::size_t n = 1; n < cost.size(); ++n)
            if (cost[n] + slope * bits[n] < cost[best] + slope * bits[best]) best = n;
        return best;
    }
};

struct coder {
    const tuned_problem &p;
    int sblimit = sblimit_of(p.layer, p.table), parts = p.layer == 1 ? 1 : 3;
    unit made[3][32];

    /// What the first bits must take away, in that what bits take away where they run out, to stay.
    double stay() const {
        const double bits_a_sample = (p.budget - p.padding) / (12.0 * parts * p.channels * sblimit);
        return std::clamp(0.42 * (bits_a_sample - 0.7), 0.35, 0.7);
    }
    /// And where there were none.
    double begin() const { return 1.55 - 0.65 * stay(); }

    /// The choice with the least of value(choice), of equals the one with the fewest bits.
    /// @param index_of  (in): the scale factor of the parts for which `in` holds
    choice least(const auto &index_of, const auto &value) const {
        double least = infinite;
        choice best;
        for (const int scfsi : {2, 1, 3, 0}) {
            if (p.layer == 1 && scfsi != 0) continue;
            choice tried{scfsi, {}};
            for (int part = 0; part < parts; ++part)
                tried.index[part] =
                    index_of([&](int other) { return is_together(scfsi, part, other); });
            const double now = value(tried);
            if (now >= least * less) continue;
            least = now;
            best = tried;
        }
        return best;
    }
    double total(const choice &c, const auto &noise) const {
        double total = 0;
        for (int part = 0; part < parts; ++part)
            total += noise(part, c.index[part]);
        return total;
    }
    /// Of the scale factors from `above` steps above the loudest part's to `below` steps below it the one
    /// with the least noise(part, index).
    int nearby(int ch, int sb, const auto &in, int above, int below, const auto &noise) const {
        int middle = 62;
        for (int part = 0; part < parts; ++part)
            if (in(part)) middle = std::min(middle, p.index[ch][sb][part]);
        double least = infinite;
        int best = middle;
        for (int i = std::max(middle - above, 0); i <= std::min(middle + below, 62); ++i) {
            double sum = 0;
            for (int part = 0; part < parts; ++part)
                sum += in(part) ? noise(part, i) : 0;
            if (sum >= least * less) continue;
            least = sum;
            best = i;
        }
        return best;
    }

    static double decoded(double normalised, int steps) {
        const double most = (steps - 1) / 2.0;
        return std::clamp(std::round(normalised * steps / 2), -most, most) * 2 / steps;
    }
    /// The weighted noise of one part, of which z(j) is decoded before its scale factor, and of energy lost.
    double exact(int ch, int part, int sb, int index, const auto &z, double of_lost) const {
        double noise = 0, lost = 0;
        for (int j = 12 * part; j < 12 * part + 12; ++j) {
            const double x = p.samples[ch][j][sb], y = scale_of(index) * z(j);
            noise += (x - y) * (x - y);
            lost += x * x - y * y;
        }
        return p.weights[ch][part][sb] * (noise + of_lost * std::max(lost, 0.0));
    }
    static double of_lost(int sb) { return sb < 13 ? 0 : 0.2; }
    /// With samples of its own; of one step nothing is left.
    double own(int ch, int part, int sb, int steps, int index, double of_lost) const {
        const auto z = [&](int j) { return decoded(p.samples[ch][j][sb] / scale_of(index), steps); };
        return exact(ch, part, sb, index, z, of_lost);
    }

    /// With three steps: a scale factor more than two steps above a part's leaves nothing of it.
    auto ternary_noise(int ch, int sb) const {
        return [this, ch, sb](int part, int index) {
            const int steps = index < p.index[ch][sb][part] - 2 ? 1 : 3;
            return own(ch, part, sb, steps, index, of_lost(sb));
        };
    }
    /// Own scale factors by noise and bits.
    choice priced(int ch, int sb, int above, int below, const auto &noise) const {
        const auto price = [](int scfsi) { return std::pow(4, 6 * sent_per_scfsi[scfsi] / 36.0); };
        return least([&](const auto &in) { return nearby(ch, sb, in, above, below, noise); },
                     [&](const choice &c) { return total(c, noise) * price(c.scfsi); });
    }

    /// The scale factor, 2^(1 - i / 3), nearest to the best one over the parts for which `in` holds, where
    /// z(j) is decoded before it.
    int fitted(int ch, int sb, const auto &z, const auto &in) const {
        double product = 0, square = 0, all = 0;
        for (int j = 0; j < 12 * parts; ++j) {
            if (!in(j / 12)) continue;
            const double w = p.weights[ch][j / 12][sb], x = p.samples[ch][j][sb];
            product += w * x * z(j);
            square += w * z(j) * z(j);
            all += w * x * x;
        }
        if (product <= 0) return 62;
        const double best = std::min(product / square / (1 - of_lost(sb)), std::sqrt(all / square));
        return static_cast<int>(std::clamp(std::round(3 - 3 * std::log2(best)), 0.0, 62.0));
    }
    /// The quantizer counts as one of 9 steps.
    choice shared(int ch, int sb) const {
        const auto z = [&](int j) { return p.samples[2][j][sb] / scale_of(p.index[2][sb][j / 12]); };
        const auto value = [&](const choice &c) {
            return total(c, [&](int part, int index) {
                const double quantizer = 4.0 / 81 * (1 + 0.231 * sent_per_scfsi[c.scfsi]);
                return exact(ch, part, sb, index, z, of_lost(sb))
                       + p.weights[ch][part][sb] * std::pow(scale_of(index), 2) * quantizer;
            });
        };
        return least([&](const auto &in) { return fitted(ch, sb, z, in); }, value);
    }
    /// What comes closest to both channels.
    void mix(unit &u, const choice (&sent)[2]) const {
        for (int j = 0; j < 12 * parts; ++j) {
            double product = 0, square = 0;
            for (int ch = 0; ch < 2; ++ch) {
                const double w = p.weights[ch][j / 12][u.sb], s = scale_of(sent[ch].index[j / 12]);
                product += w * s * p.samples[ch][j][u.sb];
                square += w * s * s;
            }
            u.shared[j] = product / square;
        }
    }

    /// That scale factors of quantized samples are refined later counts, of shared ones a third as much.
    double cost(const unit &u, int ch, int steps) const {
        if (steps == 3 && !u.is_shared()) return total(u.ternary, ternary_noise(ch, u.sb));
        return total(u.finer[ch], [&](int part, int index) {
            const double uniform = p.weights[ch][part][u.sb] * 4 * std::pow(scale_of(index) / steps, 2);
            const auto z = [&](int j) {
                return steps <= 9 ? decoded(u.shared[j], steps) : u.shared[j];
            };
            if (steps == 0) return own(ch, part, u.sb, 1, index, 0);
            if (u.is_shared())
                return 0.95 * (exact(ch, part, u.sb, index, z, 0) + (steps <= 9 ? 0 : uniform));
            if (steps <= 9) return 0.85 * own(ch, part, u.sb, steps, index, 0);
            return 0.85 * std::min(uniform, own(ch, part, u.sb, 1, index, 0));
        });
    }
    int side_bits(const choice &c) const { return p.layer == 1 ? 6 : 2 + 6 * sent_per_scfsi[c.scfsi]; }

    unit make_unit(int row, int sb) const {
        unit u{row, sb, quantizers_of(p.layer, p.table, sb).steps, {}, {}, {}, {}, {}};
        const int first = u.is_shared() ? 0 : row, last = u.is_shared() ? 1 : row;
        const auto uniform = [&](int part, int index) {
            return p.weights[row][part][sb] * std::pow(scale_of(index), 2);
        };
        for (int ch = first; ch <= last; ++ch)
            u.finer[ch] = u.is_shared() ? shared(ch, sb) : priced(ch, sb, 0, 0, uniform);
        if (u.is_shared()) mix(u, u.finer);
        if (!u.is_shared()) u.ternary = priced(row, sb, 2, 3, ternary_noise(row, sb));
        for (const int steps : u.steps) {
            double cost_of_all = 0;
            int bits = (p.layer == 1 || is_grouped(2, steps) ? 12 : 36) * code_bits_of(p.layer, steps);
            for (int ch = first; ch <= last; ++ch) {
                bits += side_bits(steps == 3 && !u.is_shared() ? u.ternary : u.finer[ch]);
                cost_of_all += cost(u, ch, steps);
            }
            u.bits.push_back(steps == 0 ? 0 : bits);
            u.cost.push_back(cost_of_all);
        }
        return u;
    }

    explicit coder(const tuned_problem &problem) : p(problem) {
        for (int sb = 0; sb < sblimit; ++sb) {
            for (int ch = 0; ch < p.channels; ++ch)
                made[ch][sb] = make_unit(ch, sb);
            if (p.joint) made[2][sb] = make_unit(2, sb);
        }
    }
    std::vector<unit> units(int bound) const {
        std::vector<unit> all;
        for (int sb = 0; sb < sblimit; ++sb) {
            if (p.joint && sb >= bound) all.push_back(made[2][sb]);
            for (int ch = 0; ch < p.channels && !(p.joint && sb >= bound); ++ch)
                all.push_back(made[ch][sb]);
        }
        return all;
    }
    int available(const std::vector<unit> &all) const {
        int bits = p.budget - 32 - (p.crc ? 16 : 0);
        for (const unit &u : all)
            bits -= quantizers_of(p.layer, p.table, u.sb).alloc_bits;
        return bits;
    }

    /// The least of the slopes, 8 an octave, with which a frame without padding has bits for what is
    /// reached.
    double common_slope(const std::vector<unit> &all) const {
        int affordable = 8 * 400, beyond = -8 * 400;
        const auto slope_at = [](int place) { return std::ldexp(8 + (place & 7), (place >> 3) - 3); };
        while (affordable - beyond > 1) {
            const int place = beyond + (affordable - beyond) / 2;
            int spent = p.padding;
            for (const unit &u : all)
                spent += u.bits[u.reached(slope_at(place))];
            (spent <= available(all) ? affordable : beyond) = place;
        }
        return slope_at(affordable);
    }
    /// How much more bounds cost than the best one, with a common slope.
    void weigh_bounds(double slope, double (&excess)[5]) const {
        double least = infinite;
        for (int i = 0; i < 5; ++i) {
            const std::vector<unit> all = units(i < 4 ? 4 * i + 4 : 32);
            excess[i] = slope * (p.budget - available(all));
            for (const unit &u : all)
                excess[i] += u.cost[u.reached(slope)] + slope * u.bits[u.reached(slope)];
            least = std::min(least, excess[i]);
        }
        for (double &e : excess)
            e = e / least - 1;
    }
    tuned_past by_itself() const {
        tuned_past now;
        double slope = common_slope(units(8));
        if (p.joint) {
            weigh_bounds(slope, now.excess);
            const auto best = std::min_element(now.excess, now.excess + 5) - now.excess;
            slope = common_slope(units(best < 4 ? 4 * static_cast<int>(best) + 4 : 32));
            weigh_bounds(slope, now.excess);
            // Where bits do not run out, all bounds are alike.
            if (slope < std::exp2(-399.8)) std::fill_n(now.excess, 5, 0);
        }
        for (int row = 0; row < 3; ++row) {
            if (row < 2 ? row >= p.channels : !p.joint) continue;
            for (int sb = row == 2 ? 4 : 0; sb < sblimit; ++sb) {
                const double first = made[row][sb].first_slope();
                now.strong[row][sb] = first > begin() * slope;
                now.weak[row][sb] = first > stay() * slope;
            }
        }
        return now;
    }
    int bound_after(const tuned_past &now) const {
        int best = 32;
        double least = infinite;
        for (const int bound : {32, 16, 12, 8, 4}) {
            if (!p.joint || (bound < 32 && bound >= sblimit)) continue;
            const int i = bound == 32 ? 4 : bound / 4 - 1;
            double sum = now.excess[i];
            for (std::size_t k = 0; k < p.before.size(); ++k)
                sum += std::pow(0.9, k + 1) * std::min(0.05, p.before[k].excess[i]);
            if (sum >= least) continue;
            least = sum;
            best = bound;
        }
        return best;
    }

    /// Bits that come cheaper or dearer than by itself: as if the first slope were greater or lesser.
    void favour(std::vector<unit> &all) const {
        bool on[3][32] = {};
        for (auto past = p.before.rbegin(); past != p.before.rend(); ++past) {
            for (int i = 0; i < 3 * 32; ++i) {
                bool &o = on[i / 32][i % 32];
                o = past->strong[i / 32][i % 32] || (past->weak[i / 32][i % 32] && o);
            }
        }
        for (unit &u : all) {
            const double without = u.row < 2 && on[1 - u.row][u.sb] ? 1 : begin();
            const double slope = u.first_slope() / (on[u.row][u.sb] ? stay() : without);
            u.cost[0] = infinite;
            for (std::size_t n = 1; n < u.cost.size(); ++n)
                u.cost[0] = std::min(u.cost[0], u.cost[n] + slope * u.bits[n]);
        }
    }

    /// Again and again the best of all steps that fit.
    static void climb(std::vector<unit> &all, int &left) {
        while (true) {
            double best = 0;
            unit *who = nullptr;
            int where = 0;
            for (unit &u : all) {
                for (int n = u.at + 1; n < static_cast<int>(u.cost.size()); ++n) {
                    const int more = u.bits[n] - u.bits[u.at];
                    const double slope = (u.cost[u.at] - u.cost[n]) / more;
                    if (more > left || slope <= best) continue;
                    best = slope;
                    who = &u;
                    where = n;
                }
            }
            if (who == nullptr) return;
            left -= who->bits[where] - who->bits[who->at];
            who->at = where;
        }
    }

    /// The least exact noise of a channel's subband with so many scale factors.
    choice refined(const unit &u, int ch, int count, double &least_noise) const {
        const int steps = u.steps[static_cast<unsigned>(u.at)], sb = u.sb;
        const auto z = [&](int j) { return decoded(u.shared[j], steps); };
        const auto noise = [&](int part, int index) {
            if (u.is_shared()) return exact(ch, part, sb, index, z, of_lost(sb));
            if (index >= p.index[ch][sb][part] - 1) return own(ch, part, sb, steps, index, of_lost(sb));
            const double uniform = p.weights[ch][part][sb] * 4 * std::pow(scale_of(index) / steps, 2);
            return std::min(uniform, own(ch, part, sb, 1, index, 0));
        };
        const choice best = least(
            [&](const auto &in) {
                return u.is_shared() ? fitted(ch, sb, z, in) : nearby(ch, sb, in, 1, 2, noise);
            },
            [&](const choice &c) {
                return p.layer == 1 || sent_per_scfsi[c.scfsi] == count ? total(c, noise) : infinite;
            });
        least_noise = total(best, noise);
        return best;
    }

    /// Scale factors anew, for the bits that they have and what is left.
    void refine(std::vector<unit> &all, int &left) const {
        std::vector<choice *> sent;
        std::vector<std::array<choice, 4>> offers;
        std::vector<buyer> buyers;
        for (unit &u : all) {
            const int steps = u.steps[static_cast<unsigned>(u.at)];
            for (int ch = u.is_shared() ? 0 : u.row; ch <= (u.is_shared() ? 1 : u.row); ++ch) {
                if (steps == 3 && !u.is_shared()) u.finer[ch] = u.ternary;
                if (steps == 0 || (steps == 3 && !u.is_shared())) continue;
                sent.push_back(&u.finer[ch]);
                offers.emplace_back();
                buyers.push_back({sent_per_scfsi[u.finer[ch].scfsi], {}, 0});
                for (int part = 0; part < parts; ++part)
                    buyers.back().energy += own(ch, part, u.sb, 1, 0, 0);
                for (int count = 1; count <= 3; ++count)
                    offers.back()[count] = refined(u, ch, count, buyers.back().noise[count]);
            }
        }
        if (p.layer == 2) buy(buyers, left);
        for (std::size_t i = 0; i < buyers.size(); ++i)
            *sent[i] = offers[i][p.layer == 2 ? buyers[i].count : 1];
    }
};

} // namespace

tuned_answer allocate(tuned_problem &p) {
    const coder c{p};
    tuned_answer a;
    a.now = c.by_itself();
    const int bound = c.bound_after(a.now);
    a.bound = std::min(bound, c.sblimit);
    a.mode = bound < c.sblimit;
    a.extension = a.mode == 1 ? bound / 4 - 1 : 0;
    std::vector<unit> all = c.units(bound);
    a.left = c.available(all);
    c.favour(all);
    coder::climb(all, a.left);
    c.refine(all, a.left);
    for (unit &u : all) {
        for (int ch = u.is_shared() ? 0 : u.row; ch <= (u.is_shared() ? 1 : u.row); ++ch) {
            a.allocation[ch][u.sb] = u.at;
            a.scfsi[ch][u.sb] = u.finer[ch].scfsi;
            std::copy_n(u.finer[ch].index, 3, a.index[ch][u.sb]);
        }
        if (!u.is_shared() || u.at == 0) continue;
        c.mix(u, u.finer);
        for (int j = 0; j < 12 * c.parts; ++j)
            p.samples[2][j][u.sb] = u.shared[j];
        std::fill_n(p.index[2][u.sb], 3, 3); // of the scale factor 1
    }
    return a;
}

} // namespace oracle
