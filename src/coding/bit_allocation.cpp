#include "coding/bit_allocation.hpp"

#include "vela_enc_mp1a/settings.h"

#include <algorithm>
#include <limits>

namespace vela {

namespace {

constexpr int header_bits = 32;
constexpr int scalefactor_bits = 6;
constexpr int scfsi_bits = 2;

int crc_bits(const coder_config &config) noexcept {
    return config.error_protection ? 16 : 0;
}

/// Header, CRC and allocation fields.
int fixed_bits(const coder_config &config, int joint_bound) noexcept {
    int bits = header_bits + crc_bits(config);
    for (int sb = 0; sb < config.sblimit; ++sb) {
        bits += config.table->row(sb).alloc_bits * (sb < joint_bound ? config.channels : 1);
    }
    return bits;
}

/// Scale factors and their selection of a subband with bits.
int side_bits(const coder_config &config, const side_info &side, int ch, int sb) noexcept {
    if (config.layer == 1) return scalefactor_bits;
    return scfsi_bits + scalefactor_bits * scalefactors_per_scfsi[side.scfsi[ch][sb]];
}

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
        return static_cast<unsigned>(std::min(row.first_reaching(0.0, smr[ch][sb]), row.demand_limit));
    };
    const unsigned first = sufficient(0), second = sufficient(1), both = std::max(first, second);
    const int side0 = side_bits(config, side, 0, sb), side1 = side_bits(config, side, 1, sb);
    subband_demand bits{0, 0};
    if (first > 0) bits.separate += row.sample_bits[first] + side0;
    if (second > 0) bits.separate += row.sample_bits[second] + side1;
    if (both > 0) bits.shared += row.sample_bits[both] + side0 + side1;
    return bits;
}

/// The greedy search grants the least mask-to-noise ratio first, so as long as bits last it grants, in
/// some order, every step that starts from a ratio below some level. One pair of channel and subband,
/// or both channels of a shared subband:
struct candidate {
    const alloc_row *row;
    double smr; ///< the larger one of a shared subband
    int opening_bits;
    std::uint8_t ch, sb;

    unsigned steps_below(double mnr) const noexcept {
        return static_cast<unsigned>(row->first_reaching(mnr, smr));
    }
    int cost(unsigned step) const noexcept {
        return row->sample_bits[step] + (step != 0) * opening_bits;
    }
};

/// The greedy search over one frame.
class search {
  public:
    search(const coder_config &config, const smr_table &smr, int available, side_info &side) noexcept
        : config_(config), smr_(smr), side_(side), available_(available) {}

    /// Grants in one go what the search would grant for certain: every step from below a level whose
    /// steps all together are affordable.
    /// @param hint  where to look for that level first; receives it
    void grant_common_level(double &hint) noexcept;

    /// Goes on step by step from there, exactly as the search would.
    void grant_step_by_step() noexcept;

    int available() const noexcept { return available_; }

  private:
    /// Pairs in the order in which the search looks at them: of equal ratios the first one wins. Layer
    /// I goes subband by subband, channel 0 first; Layer II channel by channel.
    int place(int ch, int sb) const noexcept { return config_.layer == 1 ? 2 * sb + ch : 32 * ch + sb; }
    int channel(int p) const noexcept { return config_.layer == 1 ? p % 2 : p / 32; }
    int subband(int p) const noexcept { return config_.layer == 1 ? p / 2 : p % 32; }

    double ratio(int ch, int sb) const noexcept {
        return config_.table->row(sb).snr[side_.allocation[ch][sb]] - smr_[ch][sb];
    }

    /// Ratios at and above this end the search. Layer I stops as soon as everything lies a full dB
    /// above the first subband of channel 0.
    double end_ratio() const noexcept { return config_.layer == 1 ? ratio(0, 0) + 1.0 : 999999.0; }

    int list_candidates(candidate (&list)[64]) const noexcept;
    void list_open(double below) noexcept;
    bool grant_listed(double below) noexcept;
    int step_cost(int p) const noexcept;
    void grant(int p) noexcept;
    void close_unaffordable() noexcept;

    static constexpr double closed = std::numeric_limits<double>::infinity();

    const coder_config &config_;
    const smr_table &smr_;
    side_info &side_;
    int available_;
    double high_ = closed; ///< everything that starts from below is more than is affordable
    int open_count_ = 0;
    std::uint8_t open_[64]; ///< places not closed, in order
    double mnr_[64];        ///< by place
};

int search::list_candidates(candidate (&list)[64]) const noexcept {
    int count = 0;
    for (int sb = 0; sb < config_.sblimit; ++sb) {
        const alloc_row *const row = &config_.table->row(sb);
        const auto subband = static_cast<std::uint8_t>(sb);
        if (is_shared(config_, side_, sb)) {
            list[count++] = {row, std::max(smr_[0][sb], smr_[1][sb]),
                             opening_bits(config_, side_, 0, sb), 0, subband};
            continue;
        }
        for (int ch = 0; ch < config_.channels; ++ch) {
            list[count++] = {row, smr_[ch][sb], opening_bits(config_, side_, ch, sb),
                             static_cast<std::uint8_t>(ch), subband};
        }
    }
    return count;
}

void search::grant_common_level(double &hint) noexcept {
    candidate list[64];
    const int count = list_candidates(list);
    const auto cost_of = [&](double level) {
        int cost = 0;
        for (int k = 0; k < count; ++k)
            cost += list[k].cost(list[k].steps_below(level));
        return cost;
    };
    // Nothing starts below the least ratio without bits, so that level is affordable. The upper end is
    // more than the finest quantizer's SNR; in Layer I the search ends where the first subband ends.
    double low = closed;
    for (int k = 0; k < count; ++k)
        low = std::min(low, 0.0 - list[k].smr);
    double high = low + 128.0;
    if (config_.layer == 1) {
        const alloc_row &row = config_.table->row(0);
        high = std::min(high, (row.snr[static_cast<unsigned>(row.last)] - smr_[0][0]) + 1.0);
    }
    // From the last frame's level outwards in growing strides until the answer lies in between, then by
    // halves. Trying a level costs about as much as three steps of the search; 1 dB apart, few are
    // left.
    int spent = 0;
    double level = hint, stride = 1.0;
    bool bracketed = false, was_affordable = false;
    while (high - low > 1.0) {
        level = std::clamp(level, low + 0.25, high - 0.25);
        const int cost = cost_of(level);
        const bool affordable = cost <= available_;
        bracketed = bracketed || (stride > 1.0 && affordable != was_affordable);
        was_affordable = affordable;
        (affordable ? low : high) = level;
        if (affordable) spent = cost;
        level = bracketed ? low + (high - low) / 2 : affordable ? level + stride : level - stride;
        stride *= 2;
    }
    hint = low;
    high_ = high;
    for (int k = 0; k < count; ++k) {
        const auto step = static_cast<std::uint8_t>(list[k].steps_below(low));
        side_.allocation[list[k].ch][list[k].sb] = step;
        if (is_shared(config_, side_, list[k].sb)) side_.allocation[1][list[k].sb] = step;
    }
    available_ -= spent;
}

void search::list_open(double below) noexcept {
    open_count_ = 0;
    const auto list_pair = [&](int ch, int sb) {
        const int p = place(ch, sb);
        const bool done = side_.allocation[ch][sb] >= config_.table->row(sb).last;
        mnr_[p] = done ? closed : ratio(ch, sb);
        open_[open_count_] = static_cast<std::uint8_t>(p);
        open_count_ += mnr_[p] < below;
    };
    if (config_.layer == 1) {
        for (int sb = 0; sb < config_.sblimit; ++sb) {
            for (int ch = 0; ch < config_.channels; ++ch)
                list_pair(ch, sb);
        }
    } else {
        for (int ch = 0; ch < config_.channels; ++ch) {
            for (int sb = 0; sb < config_.sblimit; ++sb)
                list_pair(ch, sb);
        }
    }
}

int search::step_cost(int p) const noexcept {
    const int ch = channel(p), sb = subband(p);
    const alloc_row &row = config_.table->row(sb);
    const unsigned step = side_.allocation[ch][sb];
    return row.sample_bits[step + 1] - row.sample_bits[step]
           + (step == 0 ? opening_bits(config_, side_, ch, sb) : 0);
}

void search::grant(int p) noexcept {
    const int ch = channel(p), sb = subband(p);
    available_ -= step_cost(p);
    const auto step = static_cast<std::uint8_t>(side_.allocation[ch][sb] + 1);
    const bool done = step == config_.table->row(sb).last;
    side_.allocation[ch][sb] = step;
    mnr_[p] = done ? closed : ratio(ch, sb);
    if (!is_shared(config_, side_, sb)) return;
    side_.allocation[1 - ch][sb] = step;
    mnr_[place(1 - ch, sb)] = done ? closed : ratio(1 - ch, sb);
}

void search::close_unaffordable() noexcept {
    int kept = 0;
    for (int i = 0; i < open_count_; ++i) {
        const std::uint8_t p = open_[i];
        if (mnr_[p] < closed && step_cost(p) <= available_) open_[kept++] = p;
    }
    open_count_ = kept;
}

/// Grants steps of the listed pairs, the least ratio first, as long as it lies below `below`.
/// @return false when the next step is not affordable, true when there is none
bool search::grant_listed(double below) noexcept {
    while (true) {
        double least = std::min(end_ratio(), below);
        int pick = -1;
        for (int i = 0; i < open_count_; ++i) {
            const int p = open_[i];
            if (mnr_[p] < least) {
                least = mnr_[p];
                pick = p;
            }
        }
        if (pick < 0) return true;
        if (step_cost(pick) > available_) return false;
        grant(pick);
    }
}

void search::grant_step_by_step() noexcept {
    // The bits run out among the few pairs that start from just above the common level.
    list_open(high_);
    grant_listed(high_);
    // From then on, what is too dear stays so: bits only become fewer, and a step's price does not
    // change. So all such pairs can be closed together, whenever their turn would have come.
    list_open(closed);
    do {
        close_unaffordable();
    } while (!grant_listed(closed));
}

} // namespace

void choose_joint_bound(const coder_config &config, const smr_table &smr, int frame_bits,
                        frame_header &header, side_info &side) noexcept {
    const int sblimit = config.sblimit;
    subband_demand bits[32];
    for (int sb = 0; sb < sblimit; ++sb)
        bits[sb] = demand(config, smr, side, sb);
    // The Layer I estimate leaves the CRC out; the choice, and so the stream, depends on it.
    const int uncounted = config.layer == 1 ? crc_bits(config) : 0;
    const auto needed = [&](int joint_bound) {
        int total = fixed_bits(config, joint_bound) - uncounted;
        for (int sb = 0; sb < sblimit; ++sb)
            total += sb < joint_bound ? bits[sb].separate : bits[sb].shared;
        return total;
    };

    header.mode = MPEG_A_MODE_STEREO;
    header.mode_extension = 0;
    side.joint_bound = sblimit;
    if (needed(sblimit) <= frame_bits) return;
    header.mode = MPEG_A_MODE_JOINT_STEREO;
    int extension = 4;
    do {
        --extension;
        // A bound beyond sblimit shares nothing.
        side.joint_bound = std::min(joint_bounds[static_cast<unsigned>(extension)], sblimit);
    } while (needed(side.joint_bound) > frame_bits && extension > 0);
    header.mode_extension = static_cast<std::uint8_t>(extension);
}

int allocate_bits(const coder_config &config, const smr_table &smr, int frame_bits, side_info &side,
                  double &level_hint) noexcept {
    search greedy(config, smr, frame_bits - fixed_bits(config, side.joint_bound), side);
    greedy.grant_common_level(level_hint);
    greedy.grant_step_by_step();
    return greedy.available();
}

} // namespace vela
