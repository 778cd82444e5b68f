#include "coding/tuned_allocation.hpp"

#include "coding/bit_allocation.hpp"
#include "coding/frame_bits.hpp"
#include "coding/noise_ladder.hpp"
#include "coding/scalefactor_table.hpp"
#include "coding/tuned_scalefactors.hpp"
#include "vela_enc_mp1a/settings.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace vela {

namespace {

part_scalefactors values_of(const std::uint8_t (&index)[32]) noexcept {
    part_scalefactors values;
    for (int sb = 0; sb < 32; ++sb) {
        values.value[sb] = scalefactor_table[index[sb]];
        values.inverse[sb] = inverse_scalefactor[index[sb]];
    }
    return values;
}

/// A frame to be coded.
struct frame_data {
    const coding_kernels &kernels;
    const coder_config &config;
    const subband_samples &samples;
    const part_samples *joint;
    const noise_weights &weights;
    const side_info &side;
    const channel_scalefactors &shared; ///< from the first bound on; in joint stereo
};

/// The ladders of a frame: of every subband in every channel, and of those that may be shared.
struct frame_ladders {
    ladder own[2][32];
    ladder shared[32];

    const ladder &at(int ch, int sb, int joint_bound) const noexcept {
        return sb < joint_bound ? own[ch][sb] : shared[sb];
    }

    void build_own(const frame_data &frame) noexcept;
    void build_shared(const frame_data &frame) noexcept;
};

void frame_ladders::build_own(const frame_data &frame) noexcept {
    const coder_config &config = frame.config;
    for (int ch = 0; ch < config.channels; ++ch) {
        noise_costs costs{};
        for (int part = 0; part < config.parts(); ++part) {
            part_noise noise;
            frame.kernels.own_noise(frame.samples[ch][part],
                                    values_of(frame.side.scalefactor[ch][part]), noise);
            frame.kernels.add_noise_costs(noise, frame.weights[ch][part], costs);
        }
        for (int sb = 0; sb < config.sblimit; ++sb)
            own[ch][sb].build(config.table->row(sb), costs, sb, side_bits(config, frame.side, ch, sb));
    }
}

void frame_ladders::build_shared(const frame_data &frame) noexcept {
    const coder_config &config = frame.config;
    noise_costs costs{};
    for (int part = 0; part < config.parts(); ++part) {
        const part_scalefactors common = values_of(frame.side.joint_index[part]);
        for (int ch = 0; ch < 2; ++ch) {
            part_noise noise;
            frame.kernels.shared_noise(frame.samples[ch][part],
                                       values_of(frame.shared.scalefactor[ch][part]), frame.joint[part],
                                       common, noise);
            frame.kernels.add_noise_costs(noise, frame.weights[ch][part], costs);
        }
    }
    for (int sb = joint_bounds[0]; sb < config.sblimit; ++sb) {
        const int opening =
            side_bits(config, frame.shared, 0, sb) + side_bits(config, frame.shared, 1, sb);
        shared[sb].build(config.table->row(sb), costs, sb, opening);
    }
}

/// The search over one frame with one bound.
///
/// The step with the greatest benefit a bit leads from one corner of a ladder's hull to the next, and
/// benefits only fall from there. So as long as bits last, the search takes, in some order, every step
/// between corners that brings more than some common slope.
class climb {
  public:
    climb(const coder_config &config, const frame_ladders &ladders, int joint_bound,
          int available) noexcept;

    /// What no allocation costs less than, by Lagrange: sum of (cost + slope bits) - slope available. The
    /// nearer the slope to the common one, the closer.
    double least_cost_at(double slope) const noexcept;

    /// Takes in one go what the search would take for certain: every step down to a slope whose steps
    /// all together are affordable.
    /// @param hint  where to look for that slope first; receives it
    void take_common_slope(double &hint) noexcept;

    /// Goes on step by step from there, exactly as the search would.
    void take_single_steps() noexcept;

    int available() const noexcept { return available_; }
    double cost() const noexcept;
    /// What the cost will not fall below, whatever single steps there are.
    double least_cost() const noexcept { return cost() - std::max(available_, 0) * slope_; }

    /// The index that the i-th ladder has come to: all subbands of channel 0 and of channel 1 below the
    /// bound, then those from the bound on.
    int index(int i) const noexcept { return at_[i]; }

  private:
    void add(const ladder &l) noexcept {
        at_[count_] = 0;
        ladders_[count_++] = &l;
    }

    int count_ = 0;
    int available_;
    double slope_ = std::numeric_limits<double>::max(); ///< what brings as much has been taken
    const ladder *ladders_[64];
    int at_[64]{};
};

climb::climb(const coder_config &config, const frame_ladders &ladders, int joint_bound,
             int available) noexcept
    : available_(available) {
    for (int ch = 0; ch < config.channels; ++ch) {
        for (int sb = 0; sb < joint_bound; ++sb)
            add(ladders.own[ch][sb]);
    }
    for (int sb = joint_bound; sb < config.sblimit; ++sb)
        add(ladders.shared[sb]);
}

double climb::least_cost_at(double slope) const noexcept {
    double sum = 0;
    int bits = 0;
    for (int i = 0; i < count_; ++i) {
        const int corner = ladders_[i]->corner_reaching(slope);
        sum += ladders_[i]->cost(corner);
        bits += ladders_[i]->bits(corner);
    }
    return sum + slope * (bits - std::max(available_, 0));
}

void climb::take_common_slope(double &hint) noexcept {
    if (available_ < 0) return;
    // Slopes as the bits of their doubles: evenly spaced there means evenly spaced on a scale that is
    // as good as logarithmic. An octave is 2^52; within 1/32 of one, few steps are left.
    constexpr std::int64_t octave = std::int64_t{1} << 52, close = octave / 32;
    std::int64_t low = 0, high = std::bit_cast<std::int64_t>(slope_);
    std::int64_t key = std::bit_cast<std::int64_t>(hint), stride = octave / 8;
    int spent = 0;
    bool bracketed = false, was_affordable = false;
    while (high - low > close) {
        key = std::clamp(key, low + close / 4, high - close / 4);
        int bits = 0;
        for (int i = 0; i < count_; ++i)
            bits += ladders_[i]->bits(ladders_[i]->corner_reaching(std::bit_cast<double>(key)));
        const bool affordable = bits <= available_;
        bracketed = bracketed || (stride > octave / 8 && affordable != was_affordable);
        was_affordable = affordable;
        (affordable ? high : low) = key;
        if (affordable) spent = bits;
        key = bracketed ? low + (high - low) / 2 : affordable ? key - stride : key + stride;
        stride = std::min(2 * stride, 256 * octave);
    }
    slope_ = hint = std::bit_cast<double>(high);
    available_ -= spent;
    for (int i = 0; i < count_; ++i)
        at_[i] = ladders_[i]->corner_reaching(slope_);
}

void climb::take_single_steps() noexcept {
    ladder::step best[64];
    for (int i = 0; i < count_; ++i)
        best[i] = ladders_[i]->best_step(at_[i], available_);
    while (true) {
        double greatest = 0;
        int found = -1;
        for (int i = 0; i < count_; ++i) {
            found = best[i].slope > greatest ? i : found;
            greatest = std::max(best[i].slope, greatest);
        }
        if (found < 0) return;
        const ladder &l = *ladders_[found];
        const int more = l.bits(best[found].to) - l.bits(at_[found]);
        if (more <= available_) {
            available_ -= more;
            at_[found] = best[found].to;
        }
        // What has become too dear is looked at again when its turn has come.
        best[found] = l.best_step(at_[found], available_);
    }
}

double climb::cost() const noexcept {
    double sum = 0;
    for (int i = 0; i < count_; ++i)
        sum += ladders_[i]->cost(at_[i]);
    return sum;
}

void store_allocation(const coder_config &config, const climb &found, side_info &side) noexcept {
    int i = 0;
    for (int ch = 0; ch < config.channels; ++ch) {
        for (int sb = 0; sb < side.joint_bound; ++sb)
            side.allocation[ch][sb] = static_cast<std::uint8_t>(found.index(i++));
    }
    for (int sb = side.joint_bound; sb < config.sblimit; ++sb)
        side.allocation[0][sb] = side.allocation[1][sb] = static_cast<std::uint8_t>(found.index(i++));
}

void use_shared_scalefactors(const coder_config &config, const channel_scalefactors &shared,
                             side_info &side) noexcept {
    for (int ch = 0; ch < config.channels; ++ch) {
        for (int sb = side.joint_bound; sb < config.sblimit; ++sb) {
            side.scfsi[ch][sb] = shared.scfsi[ch][sb];
            for (int part = 0; part < config.parts(); ++part)
                side.scalefactor[ch][part][sb] = shared.scalefactor[ch][part][sb];
        }
    }
}

/// What the frame costs as allocated.
double cost_of(const coder_config &config, const frame_ladders &ladders,
               const side_info &side) noexcept {
    double sum = 0;
    for (int sb = 0; sb < config.sblimit; ++sb) {
        for (int ch = 0; ch < (sb < side.joint_bound ? config.channels : 1); ++ch)
            sum += ladders.at(ch, sb, side.joint_bound).cost(side.allocation[ch][sb]);
    }
    return sum;
}

/// Allocates by the least mask-to-noise ratio, with the cost of no bits for a signal-to-mask ratio.
/// @param slope  benefit a bit where the bits run out, for a first guess
int allocate_by_ratio(const coding_kernels &kernels, const coder_config &config,
                      const frame_ladders &ladders, double slope, int frame_bits,
                      side_info &side) noexcept {
    smr_table smr{};
    for (int ch = 0; ch < config.channels; ++ch) {
        for (int sb = 0; sb < config.sblimit; ++sb)
            smr[ch][sb] = ladders.at(ch, sb, side.joint_bound).cost(0);
        kernels.to_decibels(smr[ch]);
    }
    // A bit for each of n samples quarters the noise: of the cost C, it takes away C ln 4 / n.
    double cost[32] = {slope * 12.0 * config.parts() / 1.3862943611198906};
    kernels.to_decibels(cost);
    double level_hint = -cost[0];
    return allocate_bits(config, smr, frame_bits, side, level_hint);
}

} // namespace

int allocate_tuned(const coding_kernels &kernels, const coder_config &config,
                   const subband_samples &samples, const part_samples *joint,
                   const noise_weights &weights, int frame_bits, frame_header &header, side_info &side,
                   double &slope_hint) noexcept {
    // Below the first bound none are chosen, but values_of looks there too.
    channel_scalefactors shared{};
    const frame_data frame{kernels, config, samples, joint, weights, side, shared};
    frame_ladders ladders;
    ladders.build_own(frame);
    side.joint_bound = config.sblimit;
    const auto start = [&](int bound) {
        return climb(config, ladders, bound, frame_bits - fixed_bits(config, bound));
    };
    climb best = start(config.sblimit);
    best.take_common_slope(slope_hint);
    best.take_single_steps();
    if (config.mode == MPEG_A_MODE_JOINT_STEREO) {
        header.mode = MPEG_A_MODE_STEREO;
        header.mode_extension = 0;
        choose_shared_scalefactors(kernels, config, samples, joint, side.joint_index, weights, shared);
        ladders.build_shared(frame);
        for (unsigned extensions = 4; extensions > 0; --extensions) {
            const unsigned extension = extensions - 1;
            // A bound beyond sblimit shares nothing.
            const int bound = joint_bounds[extension];
            if (bound >= config.sblimit) continue;
            climb search = start(bound);
            // Where the bits that sharing saves buy nothing, rounding must not decide.
            const double limit = best.cost() * (1 - 1e-9);
            if (search.least_cost_at(slope_hint) >= limit) continue;
            search.take_common_slope(slope_hint);
            if (search.least_cost() >= limit) continue;
            search.take_single_steps();
            if (search.cost() >= limit) continue;
            best = search;
            header.mode = MPEG_A_MODE_JOINT_STEREO;
            header.mode_extension = static_cast<std::uint8_t>(extension);
            side.joint_bound = bound;
        }
    }
    use_shared_scalefactors(config, shared, side);
    // Where a frame has bits for a few steps only, the search may get stuck between them, and be worse
    // than one that takes small steps.
    const int left = allocate_by_ratio(kernels, config, ladders, slope_hint, frame_bits, side);
    if (cost_of(config, ladders, side) < best.cost() * (1 - 1e-9)) return left;
    store_allocation(config, best, side);
    return best.available();
}

} // namespace vela
