#include "coding/bit_allocation.hpp"

#include "coding/bracket.hpp"
#include "coding/frame_bits.hpp"
#include "vela_enc_mp1a/settings.h"

#include <algorithm>
#include <limits>
#include <span>

namespace vela {

namespace {

bool is_shared(const coder_config &config, const side_info &side, int sb) noexcept {
    return config.channels == 2 && sb >= side.joint_bound;
}

/// Bits that the first step of a subband costs beside its samples; shared subbands send both channels'
/// scale factors.
int opening_bits(const coder_config &config, const side_info &side, int ch, int sb) noexcept {
    const int own = side_bits(config, side, ch, sb);
    return is_shared(config, side, sb) ? own + side_bits(config, side, 1 - ch, sb) : own;
}

/// Bits of one subband, in both channels, if every coded sample's noise is masked.
struct subband_demand {
    int separate, shared;
};

subband_demand demand(const coder_config &config, const smr_table &smr, const side_info &side,
                      int sb) noexcept {
    const alloc_row &row = config.table->row(sb);
    const auto sufficient = [&](int ch) {
        return std::min(row.first_reaching(0.0, smr[ch][sb]), row.demand_limit);
    };
    const int first = sufficient(0), second = sufficient(1), both = std::max(first, second);
    const int side0 = side_bits(config, side, 0, sb), side1 = side_bits(config, side, 1, sb);
    subband_demand bits{0, 0};
    if (first > 0) bits.separate += row.sample_bits[first] + side0;
    if (second > 0) bits.separate += row.sample_bits[second] + side1;
    if (both > 0) bits.shared += row.sample_bits[both] + side0 + side1;
    return bits;
}

int sum_of(const coder_config &config, const subband_demand (&bits)[32], int joint_bound) noexcept {
    // The Layer I estimate leaves the CRC out; the choice, and so the stream, depends on it.
    int total = fixed_bits(config, joint_bound) - (config.layer == 1 ? crc_bits(config) : 0);
    for (int sb = 0; sb < config.sblimit; ++sb)
        total += sb < joint_bound ? bits[sb].separate : bits[sb].shared;
    return total;
}

/// A channel's part of a subband below sblimit, in the order in which the search looks at them: of
/// equal ratios the first one wins. Layer I goes subband by subband, channel 0 first; Layer II channel
/// by channel. In a shared subband a step of one channel is a step of the other one, too.
struct pair {
    const alloc_row *row;
    double smr;
    double decisive_smr; ///< the larger one of both channels where they share
    int opening_bits;
    int counted; ///< 1, but 0 for the second channel where both share
    std::uint8_t ch, sb;

    int steps_below(double mnr) const noexcept { return row->first_reaching(mnr, decisive_smr); }
    /// Of all steps up to this one.
    int cost(int step) const noexcept {
        return (row->sample_bits[step] + (step != 0) * opening_bits) * counted;
    }
};

/// The greedy search over one frame.
///
/// It grants the least mask-to-noise ratio first, so as long as bits last it grants, in some order,
/// every step that starts from below some common ratio.
class search {
  public:
    search(const coder_config &config, const smr_table &smr, int available, side_info &side) noexcept;

    /// Grants in one go what the search would grant for certain: every step from below a ratio, the
    /// highest below which all steps together are affordable.
    /// @param hint  where to look for that ratio first; receives it
    void grant_common_ratio(double &hint) noexcept;

    /// Goes on step by step from there, exactly as the search would.
    void grant_step_by_step() noexcept;

    int available() const noexcept { return available_; }

  private:
    void add_pair(int ch, int sb) noexcept;

    std::uint8_t &allocation(const pair &p) const noexcept { return side_.allocation[p.ch][p.sb]; }

    /// Bits of a pair's next step; means nothing when there is none.
    int step_cost(const pair &p) const noexcept {
        const int step = allocation(p);
        return p.row->refine_bits[step] + (step == 0) * p.opening_bits;
    }

    /// Where a pair's next step starts from; infinite when there is none.
    double ratio(const pair &p) const noexcept { return p.row->snr_to_refine[allocation(p)] - p.smr; }

    /// Ratios at and above this end the search. Layer I stops as soon as everything lies a full dB
    /// above the first subband of channel 0.
    double end_ratio() const noexcept {
        if (config_.layer == 2) return 999999.0;
        return (config_.table->row(0).snr[side_.allocation[0][0]] - smr_[0][0]) + 1.0;
    }

    void list_open(double below, int affordable) noexcept;
    bool grant_listed(double below) noexcept;

    const coder_config &config_;
    const smr_table &smr_;
    side_info &side_;
    int available_;
    double high_ = infinite; ///< everything that starts from below is more than is affordable
    int count_ = 0;
    int open_count_ = 0;
    pair pairs_[64];
    std::uint8_t open_[64]; ///< pairs that may get steps, in order

    static constexpr double infinite = std::numeric_limits<double>::infinity();
};

search::search(const coder_config &config, const smr_table &smr, int available,
               side_info &side) noexcept
    : config_(config), smr_(smr), side_(side), available_(available) {
    const bool by_subband = config.layer == 1;
    const int outer_end = by_subband ? config.sblimit : config.channels;
    const int inner_end = by_subband ? config.channels : config.sblimit;
    for (int outer = 0; outer < outer_end; ++outer) {
        for (int inner = 0; inner < inner_end; ++inner) {
            const int ch = by_subband ? inner : outer, sb = by_subband ? outer : inner;
            add_pair(ch, sb);
        }
    }
}

void search::add_pair(int ch, int sb) noexcept {
    const bool shared = is_shared(config_, side_, sb);
    pair &p = pairs_[count_++];
    p.row = &config_.table->row(sb);
    p.smr = smr_[ch][sb];
    p.decisive_smr = shared ? std::max(smr_[0][sb], smr_[1][sb]) : p.smr;
    p.opening_bits = opening_bits(config_, side_, ch, sb);
    p.counted = !shared || ch == 0;
    p.ch = static_cast<std::uint8_t>(ch);
    p.sb = static_cast<std::uint8_t>(sb);
}

void search::grant_common_ratio(double &hint) noexcept {
    const std::span pairs(pairs_, static_cast<std::size_t>(count_));
    const auto cost_of = [&](double ratio) {
        int cost = 0;
        for (const pair &p : pairs)
            cost += p.cost(p.steps_below(ratio));
        return cost;
    };
    // Nothing starts below the least ratio without bits, so that one is affordable. The upper end is
    // more than the finest quantizer's SNR; in Layer I the search ends where the first subband ends.
    double low = infinite;
    for (const pair &p : pairs)
        low = std::min(low, 0.0 - p.decisive_smr);
    double high = low + 128.0;
    if (config_.layer == 1) {
        const alloc_row &row = config_.table->row(0);
        high = std::min(high, (row.snr[row.last] - smr_[0][0]) + 1.0);
    }
    // Trying a ratio costs about as much as three steps of the search; 1 dB apart, few are left.
    int spent = 0;
    const auto ends = narrowed<double>({low, high}, hint, 1.0, 1.0, [&](double ratio) {
        const int cost = cost_of(ratio);
        const bool affordable = cost <= available_;
        if (affordable) spent = cost;
        return affordable;
    });
    hint = ends.affordable;
    high_ = ends.beyond;
    for (const pair &p : pairs)
        allocation(p) = static_cast<std::uint8_t>(p.steps_below(hint));
    available_ -= spent;
}

/// Lists the pairs whose next step starts from below a ratio and costs no more than that.
void search::list_open(double below, int affordable) noexcept {
    open_count_ = 0;
    for (int i = 0; i < count_; ++i) {
        const pair &p = pairs_[i];
        open_[open_count_] = static_cast<std::uint8_t>(i);
        // Both are asked, without a branch.
        const int refinable = ratio(p) < below, payable = step_cost(p) <= affordable;
        open_count_ += refinable & payable;
    }
}

/// Grants steps of the listed pairs, the least ratio first, as long as it lies below `below`.
/// @return false when the next step is not affordable, true when there is none
bool search::grant_listed(double below) noexcept {
    while (true) {
        double least = std::min(end_ratio(), below);
        int found = -1;
        for (int i = 0; i < open_count_; ++i) {
            // Selected rather than branched to: which one is the least cannot be foreseen.
            const double r = ratio(pairs_[open_[i]]);
            found = r < least ? open_[i] : found;
            least = std::min(r, least);
        }
        if (found < 0) return true;
        const pair *const pick = &pairs_[found];
        const int cost = step_cost(*pick);
        if (cost > available_) return false;
        available_ -= cost;
        const std::uint8_t step = ++allocation(*pick);
        if (is_shared(config_, side_, pick->sb)) side_.allocation[1 - pick->ch][pick->sb] = step;
    }
}

void search::grant_step_by_step() noexcept {
    // The bits run out among the few pairs that start from just above the common ratio.
    list_open(high_, std::numeric_limits<int>::max());
    grant_listed(high_);
    // From then on, what is too dear stays so: bits only become fewer, and a step's price does not
    // change. So all such pairs can be left out together, whenever their turn would have come.
    do {
        list_open(infinite, available_);
    } while (!grant_listed(infinite));
}

} // namespace

int demanded_bits(const coder_config &config, const smr_table &smr, const side_info &side,
                  int joint_bound) noexcept {
    subband_demand bits[32];
    for (int sb = 0; sb < config.sblimit; ++sb)
        bits[sb] = demand(config, smr, side, sb);
    return sum_of(config, bits, joint_bound);
}

void choose_joint_bound(const coder_config &config, const smr_table &smr, int frame_bits,
                        frame_header &header, side_info &side) noexcept {
    const int sblimit = config.sblimit;
    subband_demand bits[32];
    for (int sb = 0; sb < sblimit; ++sb)
        bits[sb] = demand(config, smr, side, sb);
    const auto needed = [&](int joint_bound) { return sum_of(config, bits, joint_bound); };

    header.mode = MPEG_A_MODE_STEREO;
    header.mode_extension = 0;
    side.joint_bound = sblimit;
    if (needed(sblimit) <= frame_bits) return;
    header.mode = MPEG_A_MODE_JOINT_STEREO;
    int extension = 4;
    do {
        --extension;
        // A bound beyond sblimit shares nothing.
        side.joint_bound = std::min(joint_bounds[extension], sblimit);
    } while (needed(side.joint_bound) > frame_bits && extension > 0);
    header.mode_extension = static_cast<std::uint8_t>(extension);
}

int allocate_bits(const coder_config &config, const smr_table &smr, int frame_bits, side_info &side,
                  double &ratio_hint) noexcept {
    search greedy(config, smr, frame_bits - fixed_bits(config, side.joint_bound), side);
    greedy.grant_common_ratio(ratio_hint);
    greedy.grant_step_by_step();
    return greedy.available();
}

} // namespace vela
