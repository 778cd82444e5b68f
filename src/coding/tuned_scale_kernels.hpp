// The tuned choice of scale factors. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "coding/scalefactor_table.hpp"
#include "psy/tuned_parameters.hpp"
#include "simd/lanes.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// Parts that may share a scale factor: from the first one up to the one before the end.
struct part_range {
    int first, end;
};
inline constexpr int range_count = 6;
inline constexpr part_range part_ranges[range_count] = {{0, 1}, {1, 2}, {2, 3}, {0, 2}, {1, 3}, {0, 3}};
/// The range of a part's scale factor, by scfsi and part.
inline constexpr int range_of[4][3] = {{0, 1, 2}, {3, 3, 2}, {5, 5, 5}, {0, 4, 4}};
/// Scale factors sent, by scfsi.
inline constexpr double sent_by_scfsi[4] = {3, 2, 1, 2};
/// In the order in which the selections are tried: of equals the one with the fewest bits wins.
inline constexpr int scfsi_order[4] = {2, 1, 3, 0};

/// Above every noise, and above that.
inline constexpr double most_noise = 1e300, no_choice = 1e301;

/// A value of each range by that of the selections.
template <class V>
VELA_INLINE V in_part(V scfsi, int part, const V (&of_range)[range_count]) {
    V value = of_range[range_of[0][part]];
    for (int s = 1; s < 4; ++s) {
        if (range_of[s][part] != range_of[0][part])
            value = select(scfsi == splat<V>(s), of_range[range_of[s][part]], value);
    }
    return value;
}

template <class V>
struct selection {
    V scfsi, noise;
};

/// Of the selections the one with the least price.
/// @param noise  of the ranges
/// @param price  (scfsi, noise of all parts)
template <class V, class Price>
VELA_INLINE selection<V> cheapest(const V (&noise)[range_count], Price price) {
    selection<V> best{};
    V least = splat<V>(2 * no_choice);
#pragma GCC unroll 4
    for (const int s : scfsi_order) {
        const int(&of)[3] = range_of[s];
        V sum = noise[of[0]];
        if (of[1] != of[0]) sum = sum + noise[of[1]];
        if (of[2] != of[1]) sum = sum + noise[of[2]];
        // What is not a number becomes the limit.
        const V now = price(s, min_of(sum, splat<V>(most_noise)));
        const auto better = now < least * splat<V>(tuned::less);
        best.scfsi = select(better, splat<V>(s), best.scfsi);
        best.noise = select(better, sum, best.noise);
        least = select(better, now, least);
    }
    return best;
}

template <class V>
VELA_INLINE void store_sent(V scfsi, const V (&index)[range_count], int sb, sent_scalefactors &sent) {
    store(sent.scfsi + sb, scfsi);
    for (int part = 0; part < 3; ++part)
        store(sent.index[part] + sb, in_part(scfsi, part, index));
}

/// As many scale factors as were bought, or none of that many to be had.
template <class V>
VELA_INLINE V if_as_many(int s, V bought, V noise) {
    const V many = splat<V>(no_choice);
    if (s == 2) return select(bought == splat<V>(2), noise, many);
    if (s == 0) return select(bought == splat<V>(0), noise, many);
    return select(bought == splat<V>(1), noise, select(bought == splat<V>(3), noise, many));
}

/// 2^(n / 3): a scale factor n steps above another one, in its units.
inline constexpr double scale_steps[] = {
    0.5, 0.6299605249474366, 0.7937005259840998, 1.0, 1.2599210498948732, 1.5874010519681994, 2.0};
VELA_INLINE constexpr double scaled_up(int n) {
    return scale_steps[n + 3];
}

/// The loudest index of a range: the smallest.
template <class V>
VELA_INLINE V loudest_of(part_range range, const V (&index)[3]) {
    V loudest = index[range.first];
    for (int part = range.first + 1; part < range.end; ++part)
        loudest = min_of(index[part], loudest);
    return loudest;
}

/// Of the scale factors from `above` steps above the loudest one of a range downwards the one with the
/// least noise, the loudest one of equals.
/// @param noise_of  (i, part, how far below the loudest one the part's own lies): weighted noise
template <class V, int count, int above, class NoiseOf>
VELA_INLINE void least_noise(part_range range, const V (&index)[3], NoiseOf noise_of, V &noise,
                             V &found) {
    const V loudest = loudest_of(range, index);
    const V below[3] = {index[0] - loudest, index[1] - loudest, index[2] - loudest};
    noise = splat<V>(no_choice);
    found = loudest;
#pragma GCC unroll 6
    for (int i = 0; i < count; ++i) {
        V sum = noise_of(i, range.first, below[range.first]);
        for (int part = range.first + 1; part < range.end; ++part)
            sum = sum + noise_of(i, part, below[part]);
        const V at = loudest + splat<V>(i - above);
        const V many = splat<V>(no_choice);
        sum = select(at < splat<V>(0.0), many, select(splat<V>(62.0) < at, many, sum));
        const auto better = sum < noise * splat<V>(tuned::less);
        noise = select(better, sum, noise);
        found = select(better, at, found);
    }
}

/// Levels are 0 and 2/3 of the scale factor s on both sides: a sample x above s / 3 loses
/// x^2 - (x - 2/3 s)^2 = 4/3 s (x - s / 3) of its energy.
template <class V>
void choose_ternary(const part_samples *samples, int parts, const part_scalefactors (&peaks)[3],
                    const part_values &weight, int end, sent_scalefactors &sent, double (&cost)[32],
                    part_values &energy) noexcept {
    const V zero = splat<V>(0.0);
    for (int sb = 0; sb < end; sb += lanes<V>) {
        V noise[3][ternary_scales], whole[3], index[3];
        for (int part = 0; part < 3; ++part) {
            index[part] = load<V>(peaks[part].index + sb);
            V above[ternary_scales], squares = zero;
            for (V &sum : above)
                sum = zero;
            const V inverse = load<V>(peaks[part].inverse + sb);
            for (int j = 0; j < 12 && part < parts; ++j) {
                const V x = load<V>(samples[part][j] + sb), size = magnitude(x) * inverse;
                squares = squares + x * x;
#pragma GCC unroll 6
                for (int i = 0; i < ternary_scales; ++i) {
                    const V over = size - splat<V>(scaled_up(ternary_above - i) / 3);
                    above[i] = above[i] + max_of(over, zero);
                }
            }
            const V w = load<V>(weight[part] + sb), scale = load<V>(peaks[part].value + sb);
            whole[part] = squares * w;
            store(energy[part] + sb, squares);
            for (int i = 0; i < ternary_scales; ++i) {
                const V share = splat<V>(scaled_up(ternary_above - i) * (4.0 / 3));
                noise[part][i] = (squares - above[i] * share * (scale * scale)) * w;
            }
        }
        // A scale factor far above a part's own leaves nothing of it.
        const auto noise_of = [&](int i, int part, V below) {
            V found = whole[part];
            for (int j = 0; j <= i; ++j)
                found = select(below == splat<V>(i - j), noise[part][j], found);
            return found;
        };
        V least[range_count], at[range_count];
        for (int r = 0; r < range_count; ++r)
            least_noise<V, ternary_scales, ternary_above>(part_ranges[r], index, noise_of, least[r],
                                                          at[r]);
        const selection<V> best =
            cheapest(least, [](int s, V sum) { return sum * splat<V>(tuned::selection_price[s]); });
        store_sent(best.scfsi, at, sb, sent);
        store(cost + sb, best.noise);
    }
}

/// Parts take the largest of the peaks' scale factors that they share.
template <class V>
void choose_finer(const part_scalefactors (&peaks)[3], const part_values &weight,
                  sent_scalefactors &sent, part_scalefactors (&used)[3]) noexcept {
    for (int sb = 0; sb < 32; sb += lanes<V>) {
        V noise[range_count], value[range_count], inverse[range_count], index[range_count];
        for (int r = 0; r < range_count; ++r) {
            const auto [first, end] = part_ranges[r];
            value[r] = load<V>(peaks[first].value + sb);
            inverse[r] = load<V>(peaks[first].inverse + sb);
            index[r] = load<V>(peaks[first].index + sb);
            V sum = load<V>(weight[first] + sb);
            for (int part = first + 1; part < end; ++part) {
                value[r] = max_of(load<V>(peaks[part].value + sb), value[r]);
                inverse[r] = min_of(load<V>(peaks[part].inverse + sb), inverse[r]);
                index[r] = min_of(load<V>(peaks[part].index + sb), index[r]);
                sum = sum + load<V>(weight[part] + sb);
            }
            noise[r] = sum * (value[r] * value[r]);
        }
        const V scfsi = cheapest(noise, [](int s, V sum) {
                            return sum * splat<V>(tuned::selection_price[s]);
                        }).scfsi;
        store_sent(scfsi, index, sb, sent);
        for (int part = 0; part < 3; ++part) {
            store(used[part].value + sb, in_part(scfsi, part, value));
            store(used[part].inverse + sb, in_part(scfsi, part, inverse));
            store(used[part].index + sb, in_part(scfsi, part, index));
        }
    }
}

template <class V>
VELA_INLINE bool any_above(V a, double limit) {
    double value[lanes<V>];
    store(value, a);
    bool any = false;
    for (const double v : value)
        any = any || v > limit;
    return any;
}

template <class V>
void refine(const part_samples *samples, int parts, const part_scalefactors (&peaks)[3],
            const part_values &weight, const part_values &energy, const double (&half)[32], int first,
            int end, sent_scalefactors &sent) noexcept {
    const V zero = splat<V>(0.0);
    for (int sb = first; sb < end; sb += lanes<V>) {
        const V halves = load<V>(half + sb), highest = halves - splat<V>(0.5);
        if (!any_above(halves, 1.5)) continue;
        const V inverse_half = splat<V>(1.0) / halves;
        V noise[3][refined_scales], index[3], w[3], whole[3], square[3];
        for (int part = 0; part < 3; ++part) {
            index[part] = load<V>(peaks[part].index + sb);
            w[part] = load<V>(weight[part] + sb);
            whole[part] = load<V>(energy[part] + sb);
            const V inverse = load<V>(peaks[part].inverse + sb) * halves;
            V sum[refined_scales];
            for (V &s : sum)
                s = zero;
            for (int j = 0; j < 12 && part < parts; ++j) {
                const V size = magnitude(load<V>(samples[part][j] + sb)) * inverse;
#pragma GCC unroll 4
                for (int i = 0; i < refined_scales; ++i) {
                    const V y = size * splat<V>(scaled_up(i - refined_above));
                    const V e = y - min_of(nearest(y), highest);
                    sum[i] = sum[i] + e * e;
                }
            }
            // In units of levels, which lie scf / half apart.
            const V unit = load<V>(peaks[part].value + sb) * inverse_half;
            square[part] = unit * unit;
            for (int i = 0; i < refined_scales; ++i) {
                const double scale = scaled_up(refined_above - i);
                noise[part][i] = sum[i] * (square[part] * splat<V>(scale * scale)) * w[part];
            }
        }
        V least[range_count], at[range_count];
        for (int r = 0; r < range_count; ++r) {
            const part_range range = part_ranges[r];
            V loudest = square[range.first];
            for (int part = range.first + 1; part < range.end; ++part)
                loudest = max_of(square[part], loudest);
            // Far above a part's samples the error is a uniform one.
            const auto noise_of = [&](int i, int part, V below) {
                const double scale = scaled_up(refined_above - i);
                V found = min_of(loudest * splat<V>(scale * scale), whole[part]) * w[part];
                for (int j = 0; j <= i; ++j)
                    found = select(below == splat<V>(i - j), noise[part][j], found);
                return found;
            };
            least_noise<V, refined_scales, refined_above>(range, index, noise_of, least[r], at[r]);
        }
        const V bought = load<V>(sent.scfsi + sb), ternary = splat<V>(1.5);
        const V scfsi = cheapest(least, [&](int s, V sum) { return if_as_many(s, bought, sum); }).scfsi;
        const auto is_finer = ternary < halves;
        store(sent.scfsi + sb, select(is_finer, scfsi, bought));
        for (int part = 0; part < 3; ++part) {
            double *const to = sent.index[part] + sb;
            store(to, select(is_finer, in_part(scfsi, part, at), load<V>(to)));
        }
    }
}

/// Half-way between the scale factors of an octave: 2^(1/6), 2^(1/2), 2^(5/6).
inline constexpr double half_way[] = {1.122462048309373, 1.4142135623730951, 1.7817974362806785};

/// The index of the scale factor, 2^(1 - index / 3), that is nearest to a normal number, by proportion.
template <class V>
VELA_INLINE V nearest_index(V x) {
    constexpr std::int64_t mantissa_mask = 0x000F'FFFF'FFFF'FFFF;
    const auto bits = to_bits(x);
    // The exponent field as a double: placed in the low bits of 2^52.
    const V exponent = from_bits<V>(((bits >> 52) & 0x7FF) | 0x4330'0000'0000'0000)
                       - splat<V>(4503599627370496.0 + 1023.0);
    const V mantissa = from_bits<V>((bits & mantissa_mask) | 0x3FF0'0000'0000'0000);
    V index = splat<V>(3.0) - splat<V>(3.0) * exponent;
    for (const double limit : half_way)
        index = index - select(mantissa < splat<V>(limit), splat<V>(0.0), splat<V>(1.0));
    return index;
}

/// Nearest scale factors, by proportion, to what fits the ranges best, and the noise with them; what they
/// cost for each that is sent.
template <class V>
VELA_INLINE void fit_ranges(const shared_fit &fit, const part_values &weight, int sb, double quantizer,
                            V (&noise)[range_count], V (&extra)[range_count], V (&index)[range_count]) {
    V w[3], energy[3], product[3], square[3];
    for (int part = 0; part < 3; ++part) {
        w[part] = load<V>(weight[part] + sb);
        energy[part] = w[part] * load<V>(fit.energy[part] + sb);
        product[part] = w[part] * load<V>(fit.product[part] + sb);
        square[part] = w[part] * load<V>(fit.square[part] + sb);
    }
    for (int r = 0; r < range_count; ++r) {
        const auto [first, end] = part_ranges[r];
        V e = energy[first], p = product[first], q = square[first], all = w[first];
        for (int part = first + 1; part < end; ++part) {
            e = e + energy[part];
            p = p + product[part];
            q = q + square[part];
            all = all + w[part];
        }
        // What is not a number becomes the limit.
        const V ratio = min_of(max_of(p / q, splat<V>(1e-9)), splat<V>(4.0));
        index[r] = min_of(max_of(nearest_index(ratio), splat<V>(0.0)), splat<V>(62.0));
        index[r] = select(splat<V>(0.0) < p, index[r], splat<V>(62.0));
        double number[lanes<V>], value[lanes<V>];
        store(number, index[r]);
        for (int i = 0; i < lanes<V>; ++i)
            value[i] = scalefactor_table[static_cast<int>(number[i])];
        const V s = load<V>(value), ss = s * s, of_quantizer = ss * splat<V>(quantizer) * all;
        noise[r] = (e - (s + s) * p + ss * q) + of_quantizer;
        extra[r] = of_quantizer * splat<V>(tuned::shared_selection_price);
    }
}

template <class V>
void fit(const shared_fit &fit, const part_values &weight, double quantizer, int first, int end,
         sent_scalefactors &sent) noexcept {
    for (int sb = first; sb < end; sb += lanes<V>) {
        V noise[range_count], extra[range_count], index[range_count];
        fit_ranges(fit, weight, sb, quantizer, noise, extra, index);
        const V scfsi = cheapest(noise, [&](int s, V sum) {
                            const int(&of)[3] = range_of[s];
                            V more = extra[of[0]];
                            if (of[1] != of[0]) more = more + extra[of[1]];
                            if (of[2] != of[1]) more = more + extra[of[2]];
                            return sum + more * splat<V>(sent_by_scfsi[s]);
                        }).scfsi;
        store_sent(scfsi, index, sb, sent);
    }
}

template <class V>
void fit_again(const shared_fit &fit, const part_values &weight, int first, int end,
               sent_scalefactors &sent) noexcept {
    for (int sb = first; sb < end; sb += lanes<V>) {
        V noise[range_count], extra[range_count], index[range_count];
        fit_ranges(fit, weight, sb, 0.0, noise, extra, index);
        const V bought = load<V>(sent.scfsi + sb);
        const V scfsi = cheapest(noise, [&](int s, V sum) { return if_as_many(s, bought, sum); }).scfsi;
        store_sent(scfsi, index, sb, sent);
    }
}

template <class V>
void decode(const part_samples &samples, const part_scalefactors &scalefactors,
            const double (&half)[32], int first, int end, part_samples &decoded) noexcept {
    const V zero = splat<V>(0.0);
    for (int sb = first; sb < end; sb += lanes<V>) {
        const V halves = load<V>(half + sb), highest = halves - splat<V>(0.5);
        const V inverse = load<V>(scalefactors.inverse + sb) * halves;
        const V unit = splat<V>(1.0) / halves;
        for (int j = 0; j < 12; ++j) {
            const V y = load<V>(samples[j] + sb) * inverse;
            const V level = min_of(nearest(magnitude(y)), highest) * unit;
            store(decoded[j] + sb, select(y < zero, zero - level, level));
        }
    }
}

} // namespace vela::VELA_LEVEL
