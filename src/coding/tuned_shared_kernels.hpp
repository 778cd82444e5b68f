// The tuned choice of scale factors for samples that the channels share. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "coding/noise_kernels.hpp"
#include "coding/tuned_selection.hpp"
#include "psy/tuned_parameters.hpp"
#include "simd/lanes.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// Scale factors sent, by scfsi.
inline constexpr double sent_by_scfsi[4] = {3, 2, 1, 2};

/// Half-way between the scale factors of an octave: 2^(1/6), 2^(1/2), 2^(5/6).
inline constexpr double half_way[] = {1.122462048309373, 1.4142135623730951, 1.7817974362806785};

template <class V>
struct scalefactor_of {
    V index, value;
};

/// The scale factor, 2^(1 - index / 3), that is nearest to a number, by proportion; what is not a number counts
/// as 0.
template <class V>
VELA_INLINE scalefactor_of<V> nearest_scalefactor(V number) {
    constexpr std::int64_t mantissa_mask = 0x000F'FFFF'FFFF'FFFF;
    const V x = min_of(max_of(number, splat<V>(scalefactor_table[62])), splat<V>(scalefactor_table[0]));
    const auto bits = to_bits(x), exponent = (bits >> 52) - 1023;
    const V mantissa = from_bits<V>((bits & mantissa_mask) | 0x3FF0'0000'0000'0000);
    tally<V> index{3 - (exponent + exponent + exponent)};
    for (const double limit : half_way)
        index.take(mantissa >= splat<V>(limit));
    std::int64_t place[lanes<V>];
    double value[lanes<V>];
    std::memcpy(place, &index.count, sizeof place);
    for (int i = 0; i < lanes<V>; ++i)
        value[i] = scalefactor_table[static_cast<int>(place[i])];
    return {index.number(), load<V>(value)};
}

/// Nearest scale factors, by proportion, to what fits the ranges best, and the noise with them; what they
/// cost for each that is sent. Where lost energy counts v of itself, the best one is 1 / (1 - v) of the least
/// squares' one, as long as all of the energy is not reached.
template <class V, int parts>
VELA_INLINE void fit_ranges(const shared_fit &fit, const part_values &weight, int sb, double quantizer,
                            V (&noise)[range_count], V (&extra)[range_count], V (&index)[range_count]) {
    const V weight_of_lost = load<V>(tuned::weight_of_lost.begin() + sb);
    const V grown = splat<V>(1.0) / (splat<V>(1.0) - weight_of_lost);
    V w[3], energy[3], product[3], square[3];
    for (int part = 0; part < parts; ++part) {
        w[part] = load<V>(weight[part] + sb);
        energy[part] = w[part] * load<V>(fit.energy[part] + sb);
        product[part] = w[part] * load<V>(fit.product[part] + sb);
        square[part] = w[part] * load<V>(fit.square[part] + sb);
    }
#pragma GCC unroll 6
    for (int r = 0; r < (parts == 1 ? 1 : range_count); ++r) {
        const auto [first, end] = part_ranges[r];
        V e = energy[first], p = product[first], q = square[first], all = w[first];
        for (int part = first + 1; part < end; ++part) {
            e = e + energy[part];
            p = p + product[part];
            q = q + square[part];
            all = all + w[part];
        }
        // Without a square the product times its inverse is not a number, and decides.
        const V inverse = splat<V>(1.0) / q;
        const auto best = nearest_scalefactor(min_of(square_root(e * inverse), p * inverse * grown));
        const V s = best.value, ss = s * s, of_quantizer = ss * splat<V>(quantizer) * all;
        index[r] = best.index;
        V lost = splat<V>(0.0);
        for (int part = first; part < end; ++part)
            lost = lost + positive_part(energy[part] - ss * square[part]);
        noise[r] = (e - (s + s) * p + ss * q) + lost * weight_of_lost + of_quantizer;
        extra[r] = of_quantizer * splat<V>(tuned::shared_selection_price);
    }
}

template <class V>
void fit(const shared_fit &fit, int parts, const part_values &weight, double quantizer, int first,
         int end, sent_scalefactors &sent) noexcept {
    over_subbands<V>(first, end, [&]<class L>(int sb) {
        L noise[range_count], extra[range_count], index[range_count];
        if (parts == 1) {
            fit_ranges<L, 1>(fit, weight, sb, quantizer, noise, extra, index);
            store(sent.index[0] + sb, index[0]);
            return;
        }
        fit_ranges<L, 3>(fit, weight, sb, quantizer, noise, extra, index);
        const L scfsi = cheapest(noise, [&](int s, L sum) {
                            return sum + sum_with(s, extra) * splat<L>(sent_by_scfsi[s]);
                        }).scfsi;
        store_sent(scfsi, index, sb, sent);
    });
}

template <class V>
void fit_again(const shared_fit &fit, int parts, const part_values &weight, int first, int end,
               scalefactor_offers &offers) noexcept {
    over_subbands<V>(first, end, [&]<class L>(int sb) {
        L noise[range_count], extra[range_count], index[range_count];
        if (parts == 1) {
            fit_ranges<L, 1>(fit, weight, sb, 0.0, noise, extra, index);
            store(offers.index[0][0] + sb, index[0]);
            return;
        }
        fit_ranges<L, 3>(fit, weight, sb, 0.0, noise, extra, index);
        store_offers(noise, index, weight, fit.energy, sb, offers);
    });
}

/// Of x0 and x1, which are decoded as s0 u and s1 u, u leaves the least of w0 (x0 - s0 u)^2 +
/// w1 (x1 - s1 u)^2.
template <class V>
void mix(const shared_parts &frame, int parts, int first, int end, part_samples *mixed) noexcept {
    over_subbands<V>(first, end, [&]<class L>(int sb) {
        for (int part = 0; part < parts; ++part) {
            const L s0 = scalefactors_at(load<L>((*frame.index[0])[part] + sb));
            const L s1 = scalefactors_at(load<L>((*frame.index[1])[part] + sb));
            const L a = load<L>((*frame.weight[0])[part] + sb) * s0;
            const L b = load<L>((*frame.weight[1])[part] + sb) * s1;
            const L whole = a * s0 + b * s1, share0 = a / whole, share1 = b / whole;
            for (int j = 0; j < 12; ++j)
                store(mixed[part][j] + sb, load<L>(frame.samples[0][part][j] + sb) * share0
                                               + load<L>(frame.samples[1][part][j] + sb) * share1);
        }
    });
}

template <class V>
void decode(const part_samples &mixed, const double (&half)[32], int first, int end,
            part_samples &decoded) noexcept {
    over_subbands<V>(first, end, [&]<class L>(int sb) {
        const L zero = splat<L>(0.0);
        const L halves = load<L>(half + sb), highest = halves - splat<L>(0.5);
        const L unit = splat<L>(1.0) / halves;
        for (int j = 0; j < 12; ++j) {
            const L y = load<L>(mixed[j] + sb) * halves;
            const L level = min_of(nearest(magnitude(y)), highest) * unit;
            store(decoded[j] + sb, select(y < zero, zero - level, level));
        }
    });
}

} // namespace vela::VELA_LEVEL
