#include "coding/bit_allocation.hpp"

#include "coding/min_tree.hpp"
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

/// Both layers' quantizers in one form: steps 0..last() of each subband, their SNR and their bits.
struct layer1_steps {
    const coder_config &config;
    const side_info &side;

    static constexpr int alloc_bits(int) noexcept { return 4; }
    static constexpr int last(int) noexcept { return layer1_last_allocation; }
    static double snr(int, int n) noexcept { return layer1_snr[static_cast<unsigned>(n)]; }
    static constexpr int sample_bits(int, int n) noexcept { return n == 0 ? 0 : 12 * (n + 1); }
    static constexpr int side_bits(int, int) noexcept { return scalefactor_bits; }
};

struct layer2_steps {
    const coder_config &config;
    const side_info &side;

    int alloc_bits(int sb) const noexcept { return config.table->row(sb).alloc_bits; }
    int last(int sb) const noexcept { return config.table->row(sb).last(); }
    double snr(int sb, int b) const noexcept { return config.table->row(sb).snr(b); }
    int sample_bits(int sb, int b) const noexcept { return config.table->row(sb).sample_bits(b); }
    int side_bits(int ch, int sb) const noexcept {
        return scfsi_bits + scalefactor_bits * scalefactors_per_scfsi[side.scfsi[ch][sb]];
    }
};

/// Header, CRC and allocation fields.
template <class Steps>
int fixed_bits(const Steps &steps, int joint_bound) noexcept {
    int bits = header_bits + crc_bits(steps.config);
    for (int sb = 0; sb < steps.config.sblimit; ++sb) {
        bits += steps.alloc_bits(sb) * (sb < joint_bound ? steps.config.channels : 1);
    }
    return bits;
}

/// The first step from `from` on whose noise the mask hides, at most `limit`.
template <class Steps>
int sufficient_step(const Steps &steps, int sb, double smr, int from, int limit) noexcept {
    int step = from;
    while (step < limit && steps.snr(sb, step) - smr < 0)
        ++step;
    return step;
}

/// Bits of one subband, in both channels, if every coded sample's noise is masked.
struct subband_demand {
    int separate, shared;
};

template <class Steps>
subband_demand demand(const Steps &steps, const smr_table &smr, int sb) noexcept {
    // The Layer II form never considers the last quantizer; in Layer I the last one is the answer when
    // none is sufficient.
    const int limit = steps.config.layer == 1 ? steps.last(sb) : steps.last(sb) - 1;
    const int first = sufficient_step(steps, sb, smr[0][sb], 0, limit);
    const int second = sufficient_step(steps, sb, smr[1][sb], 0, limit);
    const int both = sufficient_step(steps, sb, smr[1][sb], first, limit);
    const int side0 = steps.side_bits(0, sb), side1 = steps.side_bits(1, sb);
    subband_demand bits{0, 0};
    if (first > 0) bits.separate += steps.sample_bits(sb, first) + side0;
    if (second > 0) bits.separate += steps.sample_bits(sb, second) + side1;
    if (both > 0) bits.shared += steps.sample_bits(sb, both) + side0 + side1;
    return bits;
}

template <class Steps>
void choose_bound(const Steps &steps, const smr_table &smr, int frame_bits, frame_header &header,
                  side_info &side) noexcept {
    const int sblimit = steps.config.sblimit;
    subband_demand bits[32];
    for (int sb = 0; sb < sblimit; ++sb)
        bits[sb] = demand(steps, smr, sb);
    // The Layer I estimate leaves the CRC out; the choice, and so the stream, depends on it.
    const int uncounted = steps.config.layer == 1 ? crc_bits(steps.config) : 0;
    const auto needed = [&](int joint_bound) {
        int total = fixed_bits(steps, joint_bound) - uncounted;
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

/// Bits that the first step of a subband costs beside its samples; shared subbands send both channels'
/// scale factors.
template <class Steps>
int opening_bits(const Steps &steps, bool shared, int ch, int sb) noexcept {
    return steps.side_bits(ch, sb) + (shared ? steps.side_bits(1 - ch, sb) : 0);
}

/// The greedy loop. `place_of(ch, sb)` orders the pairs for ties, `accept(least)` ends the search.
template <class Steps, class Order, class Accept>
int spend(const Steps &steps, const smr_table &smr, int available, side_info &side, Order order,
          Accept accept) noexcept {
    const int channels = steps.config.channels;
    constexpr double closed = std::numeric_limits<double>::infinity();
    min_tree mnr;
    mnr.fill(closed);
    for (int ch = 0; ch < channels; ++ch) {
        for (int sb = 0; sb < steps.config.sblimit; ++sb) {
            side.allocation[ch][sb] = 0;
            mnr.set(order.place(ch, sb), steps.snr(sb, 0) - smr[ch][sb]);
        }
    }
    mnr.build();
    while (accept(mnr.best_value())) {
        const int place = mnr.best_place();
        const int ch = order.channel(place), sb = order.subband(place);
        const bool shared = channels == 2 && sb >= side.joint_bound;
        std::uint8_t &step = side.allocation[ch][sb];
        const int cost = steps.sample_bits(sb, step + 1) - steps.sample_bits(sb, step)
                         + (step == 0 ? opening_bits(steps, shared, ch, sb) : 0);
        bool open = cost <= available;
        if (open) {
            available -= cost;
            ++step;
            open = step < steps.last(sb);
        }
        const double snr = steps.snr(sb, step);
        mnr.update(place, open ? snr - smr[ch][sb] : closed);
        if (shared) {
            side.allocation[1 - ch][sb] = step;
            mnr.update(order.place(1 - ch, sb), open ? snr - smr[1 - ch][sb] : closed);
        }
    }
    return available;
}

/// Layer I compares subband by subband, channel 0 first.
struct subband_order {
    static int place(int ch, int sb) noexcept { return 2 * sb + ch; }
    static int channel(int place) noexcept { return place % 2; }
    static int subband(int place) noexcept { return place / 2; }
};

/// Layer II compares channel by channel.
struct channel_order {
    static int place(int ch, int sb) noexcept { return 32 * ch + sb; }
    static int channel(int place) noexcept { return place / 32; }
    static int subband(int place) noexcept { return place % 32; }
};

} // namespace

void choose_joint_bound(const coder_config &config, const smr_table &smr, int frame_bits,
                        frame_header &header, side_info &side) noexcept {
    if (config.layer == 1) {
        choose_bound(layer1_steps{config, side}, smr, frame_bits, header, side);
    } else {
        choose_bound(layer2_steps{config, side}, smr, frame_bits, header, side);
    }
}

int allocate_bits(const coder_config &config, const smr_table &smr, int frame_bits,
                  side_info &side) noexcept {
    if (config.layer == 1) {
        const layer1_steps steps{config, side};
        // Layer I stops as soon as every pair lies a full dB above the first subband of channel 0.
        const auto below_first = [&](double least) {
            return least < steps.snr(0, side.allocation[0][0]) - smr[0][0] + 1.0;
        };
        return spend(steps, smr, frame_bits - fixed_bits(steps, side.joint_bound), side,
                     subband_order{}, below_first);
    }
    const layer2_steps steps{config, side};
    const auto any = [](double least) { return least < 999999.0; };
    return spend(steps, smr, frame_bits - fixed_bits(steps, side.joint_bound), side, channel_order{},
                 any);
}

} // namespace vela
