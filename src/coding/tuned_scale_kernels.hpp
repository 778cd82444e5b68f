// The tuned choice of scale factors. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "coding/noise_kernels.hpp"
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
/// @param noise_of  (i): weighted noise of the range
template <class V, int count, int above, class NoiseOf>
VELA_INLINE void least_noise(V loudest, NoiseOf noise_of, V &noise, V &found) {
    const V many = splat<V>(no_choice);
    V steps = splat<V>(0.0);
    noise = many;
#pragma GCC unroll 6
    for (int i = 0; i < count; ++i) {
        V sum = noise_of(i);
        // Scale factors end at 0 and at 62.
        if (i < above) sum = select(loudest < splat<V>(above - i), many, sum);
        if (i > above) sum = select(splat<V>(62 + above - i) < loudest, many, sum);
        const auto better = sum < noise * splat<V>(tuned::less);
        noise = select(better, sum, noise);
        steps = select(better, splat<V>(i - above), steps);
    }
    found = loudest + steps;
}

/// Noise of a part with the scale factors around its own one, from `count` on; what comes before is there to
/// be read, no more.
template <class V, int count>
using noise_around = V[2 * count];

/// The noise of each lane with a scale factor `i` steps below the first one, by how far the lane's own one
/// lies below the range's loudest.
template <class V, int count>
VELA_INLINE V noise_below(const noise_around<V, count> &noise, int i, V below, V far_above) {
    if constexpr (lanes<V> <= 2) {
        // From its place in memory.
        double number[lanes<V>], here[lanes<V>];
        store(number, min_of(below, splat<V>(count)));
        for (int l = 0; l < lanes<V>; ++l)
            here[l] =
                reinterpret_cast<const double *>(noise + count + i - static_cast<int>(number[l]))[l];
        return select(splat<V>(i) < below, far_above, load<V>(here));
    } else {
        V here = far_above;
        for (int j = 0; j <= i; ++j)
            here = select(below == splat<V>(i - j), noise[count + j], here);
        return here;
    }
}

/// The same of a range by the noise of its parts.
/// @param far_above  (i, part): noise with a scale factor that is too far above the part's own
template <class V, int count, int above, class FarAbove>
VELA_INLINE void least_noise(part_range range, const V (&index)[3],
                             const noise_around<V, count> (&of_part)[3], FarAbove far_above, V &noise,
                             V &found) {
    if (range.end == range.first + 1) {
        const V *const own = of_part[range.first] + count;
        least_noise<V, count, above>(
            index[range.first], [own](int i) { return own[i]; }, noise, found);
        return;
    }
    const V loudest = loudest_of(range, index);
    const auto noise_of = [&](int i, int part) {
        return noise_below<V, count>(of_part[part], i, index[part] - loudest, far_above(i, part));
    };
    const auto sum_of = [&](int i) {
        V sum = noise_of(i, range.first);
        for (int part = range.first + 1; part < range.end; ++part)
            sum = sum + noise_of(i, part);
        return sum;
    };
    least_noise<V, count, above>(loudest, sum_of, noise, found);
}

/// x above 0, else 0.
template <class V>
VELA_INLINE V positive_part(V x) {
    if constexpr (lanes<V> == 1) {
        // What g++ makes of the other form is a branch, taken at random.
        return from_bits<V>(to_bits(x) & -std::int64_t{0.0 < x});
    } else {
        return max_of(x, splat<V>(0.0));
    }
}

template <class V>
VELA_INLINE V one_if_positive(V x) {
    const V zero = splat<V>(0.0);
    if constexpr (lanes<V> == 1) {
        return from_bits<V>(to_bits(splat<V>(1.0)) & -std::int64_t{zero < x});
    } else {
        return select(zero < x, splat<V>(1.0), zero);
    }
}

/// Below, no subband weighs what it loses. The same ones at every level.
inline constexpr int nothing_lost_below = tuned::lost_energy_from / 8 * 8;

/// Levels are 0 and 2/3 of the scale factor s on both sides: a sample x above s / 3 loses
/// x^2 - (x - 2/3 s)^2 = 4/3 s (x - s / 3) of its energy.
template <class V, int parts, bool weighs_lost>
VELA_INLINE void choose_ternary(const part_samples *samples, const part_scalefactors (&peaks)[3],
                                const part_values &weight, int sb, sent_scalefactors &sent,
                                double (&cost)[32], part_values &energy) {
    const V zero = splat<V>(0.0), weight_of_lost = load<V>(tuned::weight_of_lost.begin() + sb);
    noise_around<V, ternary_scales> noise[3];
    V whole[3], index[3];
    for (int part = 0; part < parts; ++part) {
        index[part] = load<V>(peaks[part].index + sb);
        V above[ternary_scales], kept[ternary_scales], squares = zero;
        for (int i = 0; i < ternary_scales; ++i)
            above[i] = kept[i] = zero;
        const V inverse = load<V>(peaks[part].inverse + sb);
        for (int j = 0; j < 12; ++j) {
            const V x = load<V>(samples[part][j] + sb), size = magnitude(x) * inverse;
            squares = squares + x * x;
#pragma GCC unroll 6
            for (int i = 0; i < ternary_scales; ++i) {
                const V over = size - splat<V>(scaled_up(ternary_above - i) / 3);
                above[i] = above[i] + positive_part(over);
                if (weighs_lost) kept[i] = kept[i] + one_if_positive(over);
            }
        }
        const V w = load<V>(weight[part] + sb), scale = load<V>(peaks[part].value + sb);
        whole[part] = (weighs_lost ? squares + squares * weight_of_lost : squares) * w;
        store(energy[part] + sb, squares);
        for (int i = 0; i < ternary_scales; ++i) {
            const double s = scaled_up(ternary_above - i);
            const V square = scale * scale;
            const V error = squares - above[i] * splat<V>(s * (4.0 / 3)) * square;
            const V lost = positive_part(squares - kept[i] * splat<V>(s * s * (4.0 / 9)) * square);
            if (lanes<V> <= 2) noise[part][i] = zero;
            noise[part][ternary_scales + i] = (weighs_lost ? error + lost * weight_of_lost : error) * w;
        }
    }
    // A scale factor far above a part's own leaves nothing of it.
    const auto all_of_it = [&](int, int part) { return whole[part]; };
    V least[range_count], at[range_count];
#pragma GCC unroll 6
    for (int r = 0; r < (parts == 1 ? 1 : range_count); ++r)
        least_noise<V, ternary_scales, ternary_above>(part_ranges[r], index, noise, all_of_it, least[r],
                                                      at[r]);
    if constexpr (parts == 1) {
        store(sent.index[0] + sb, at[0]);
        store(cost + sb, least[0]);
    } else {
        const selection<V> best =
            cheapest(least, [](int s, V sum) { return sum * splat<V>(tuned::selection_price[s]); });
        store_sent(best.scfsi, at, sb, sent);
        store(cost + sb, best.noise);
    }
}

template <class V>
void choose_ternary(const part_samples *samples, int parts, const part_scalefactors (&peaks)[3],
                    const part_values &weight, int end, sent_scalefactors &sent, double (&cost)[32],
                    part_values &energy) noexcept {
    over_subbands<V>(0, end, [&]<class L>(int sb) {
        const auto choose = [&]<int count>() {
            if (sb < nothing_lost_below) {
                choose_ternary<L, count, false>(samples, peaks, weight, sb, sent, cost, energy);
            } else {
                choose_ternary<L, count, true>(samples, peaks, weight, sb, sent, cost, energy);
            }
        };
        if (parts == 1) {
            choose.template operator()<1>();
        } else {
            choose.template operator()<3>();
        }
    });
}

/// Parts take the largest of the peaks' scale factors that they share.
template <class V>
void choose_finer(const part_scalefactors (&peaks)[3], const part_values &weight, int end,
                  sent_scalefactors &sent, part_scalefactors (&used)[3]) noexcept {
    over_subbands<V>(0, end, [&]<class L>(int sb) {
        L noise[range_count], value[range_count], inverse[range_count], index[range_count];
#pragma GCC unroll 6
        for (int r = 0; r < range_count; ++r) {
            const auto [first, behind] = part_ranges[r];
            value[r] = load<L>(peaks[first].value + sb);
            inverse[r] = load<L>(peaks[first].inverse + sb);
            index[r] = load<L>(peaks[first].index + sb);
            L sum = load<L>(weight[first] + sb);
            for (int part = first + 1; part < behind; ++part) {
                value[r] = max_of(load<L>(peaks[part].value + sb), value[r]);
                inverse[r] = min_of(load<L>(peaks[part].inverse + sb), inverse[r]);
                index[r] = min_of(load<L>(peaks[part].index + sb), index[r]);
                sum = sum + load<L>(weight[part] + sb);
            }
            noise[r] = sum * (value[r] * value[r]);
        }
        const L scfsi = cheapest(noise, [](int s, L sum) {
                            return sum * splat<L>(tuned::selection_price[s]);
                        }).scfsi;
        store_sent(scfsi, index, sb, sent);
        for (int part = 0; part < 3; ++part) {
            store(used[part].value + sb, in_part(scfsi, part, value));
            store(used[part].inverse + sb, in_part(scfsi, part, inverse));
        }
    });
}

/// Whether any of the subbands has more than three steps.
template <class V>
VELA_INLINE bool any_finer(const double *half) {
    bool found = false;
    for (int i = 0; i < lanes<V>; ++i)
        found |= half[i] > 1.5;
    return found;
}

template <class V, int parts, bool weighs_lost>
VELA_INLINE void refine(const part_samples *samples, const part_scalefactors (&peaks)[3],
                        const part_values &weight, const part_values &energy, V halves, int sb,
                        sent_scalefactors &sent) {
    const V zero = splat<V>(0.0), highest = halves - splat<V>(0.5);
    const V inverse_half = splat<V>(1.0) / halves;
    const V weight_of_lost = load<V>(tuned::weight_of_lost.begin() + sb);
    noise_around<V, refined_scales> noise[3];
    V index[3], w[3], whole[3], square[3];
    for (int part = 0; part < parts; ++part) {
        index[part] = load<V>(peaks[part].index + sb);
        w[part] = load<V>(weight[part] + sb);
        whole[part] = load<V>(energy[part] + sb);
        const V inverse = load<V>(peaks[part].inverse + sb) * halves;
        V sum[refined_scales], kept[refined_scales];
        for (int i = 0; i < refined_scales; ++i)
            sum[i] = kept[i] = zero;
        for (int j = 0; j < 12; ++j) {
            const V size = magnitude(load<V>(samples[part][j] + sb)) * inverse;
#pragma GCC unroll 4
            for (int i = 0; i < refined_scales; ++i) {
                const V y = size * splat<V>(scaled_up(i - refined_above));
                const V level = min_of(nearest(y), highest), e = y - level;
                sum[i] = sum[i] + e * e;
                if (weighs_lost) kept[i] = kept[i] + level * level;
            }
        }
        // In units of levels, which lie scf / half apart.
        const V unit = load<V>(peaks[part].value + sb) * inverse_half;
        square[part] = unit * unit;
        for (int i = 0; i < refined_scales; ++i) {
            const double scale = scaled_up(refined_above - i);
            const V energy_of_1 = square[part] * splat<V>(scale * scale), error = sum[i] * energy_of_1;
            const V lost = positive_part(whole[part] - kept[i] * energy_of_1);
            noise[part][refined_scales + i] =
                (weighs_lost ? error + lost * weight_of_lost : error) * w[part];
        }
    }
    const auto is_finer = splat<V>(1.5) < halves;
    V least[range_count], at[range_count];
#pragma GCC unroll 6
    for (int r = 0; r < (parts == 1 ? 1 : range_count); ++r) {
        const part_range range = part_ranges[r];
        V loudest = square[range.first];
        for (int part = range.first + 1; part < range.end; ++part)
            loudest = max_of(square[part], loudest);
        // Far above a part's samples the error is a uniform one.
        const auto uniform = [&](int i, int part) {
            const double scale = scaled_up(refined_above - i);
            return min_of(loudest * splat<V>(scale * scale), whole[part]) * w[part];
        };
        least_noise<V, refined_scales, refined_above>(range, index, noise, uniform, least[r], at[r]);
    }
    V scfsi = zero;
    if constexpr (parts > 1) {
        const V before = load<V>(sent.scfsi + sb);
        scfsi = cheapest(least, [&](int s, V sum) { return if_as_many(s, before, sum); }).scfsi;
        store(sent.scfsi + sb, select(is_finer, scfsi, before));
    }
    for (int part = 0; part < parts; ++part) {
        double *const to = sent.index[part] + sb;
        store(to, select(is_finer, parts == 1 ? at[0] : in_part(scfsi, part, at), load<V>(to)));
    }
}

template <class V>
void refine(const part_samples *samples, int parts, const part_scalefactors (&peaks)[3],
            const part_values &weight, const part_values &energy, const double (&half)[32], int first,
            int end, sent_scalefactors &sent) noexcept {
    over_subbands<V>(first, end, [&]<class L>(int sb) {
        if (!any_finer<L>(half + sb)) return;
        const L halves = load<L>(half + sb);
        const auto refine_parts = [&]<int count>() {
            if (sb < nothing_lost_below) {
                refine<L, count, false>(samples, peaks, weight, energy, halves, sb, sent);
            } else {
                refine<L, count, true>(samples, peaks, weight, energy, halves, sb, sent);
            }
        };
        if (parts == 1) {
            refine_parts.template operator()<1>();
        } else {
            refine_parts.template operator()<3>();
        }
    });
}

} // namespace vela::VELA_LEVEL
