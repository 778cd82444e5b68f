// The tuned choice of scale factors. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "coding/noise_kernels.hpp"
#include "coding/tuned_selection.hpp"
#include "psy/tuned_parameters.hpp"
#include "simd/lanes.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// Below, no subband weighs what it loses.
inline constexpr int nothing_lost_below = tuned::lost_energy_from / 4 * 4;

/// Runs step.operator()<V, parts, weighs_lost>(sb) as over_subbands() does, compiled for one part or three, and
/// for subbands of which none weighs what it loses or some do.
template <class V, class Step>
VELA_INLINE void over_variants(int parts, int first, int end, Step step) {
    const auto of_parts = [&]<int count>() {
        const int middle = end < nothing_lost_below ? end : nothing_lost_below;
        over_subbands<V>(first, middle,
                         [&]<class L>(int sb) { step.template operator()<L, count, false>(sb); });
        over_subbands<V>(first > middle ? first : middle, end,
                         [&]<class L>(int sb) { step.template operator()<L, count, true>(sb); });
    };
    parts == 1 ? of_parts.template operator()<1>() : of_parts.template operator()<3>();
}

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
        V above[ternary_scales], squares = zero;
        tally<V> kept[ternary_scales];
        for (V &sum : above)
            sum = zero;
        const V inverse = load<V>(peaks[part].inverse + sb);
        for (int j = 0; j < 12; ++j) {
            const V x = load<V>(samples[part][j] + sb), size = magnitude(x) * inverse;
            squares = squares + x * x;
#pragma GCC unroll 6
            for (int i = 0; i < ternary_scales; ++i) {
                const V over = size - splat<V>(scaled_up(ternary_above - i) / 3);
                const auto is_kept = zero < over;
                // A mask that is counted, too, saves the maximum; with eight lanes it costs more.
                above[i] = above[i] + (lanes<V> > 4 ? positive_part(over) : where(is_kept, over));
                if (weighs_lost) kept[i].add(is_kept);
            }
        }
        const V w = load<V>(weight[part] + sb), scale = load<V>(peaks[part].value + sb);
        whole[part] = (weighs_lost ? squares + squares * weight_of_lost : squares) * w;
        store(energy[part] + sb, squares);
        for (int i = 0; i < ternary_scales; ++i) {
            const double s = scaled_up(ternary_above - i);
            const V square = scale * scale;
            const V error = squares - above[i] * splat<V>(s * (4.0 / 3)) * square;
            const V lost =
                positive_part(squares - kept[i].number() * splat<V>(s * s * (4.0 / 9)) * square);
            noise[part][i] = whole[part]; // a scale factor far above a part's own leaves nothing of it
            noise[part][ternary_scales + i] = (weighs_lost ? error + lost * weight_of_lost : error) * w;
        }
        cut_off<V, ternary_scales, ternary_above>(index[part], noise[part]);
    }
    const auto all_of_it = [](int, int, V, V found) { return found; };
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
    over_variants<V>(parts, 0, end, [&]<class L, int count, bool weighs_lost>(int sb) {
        choose_ternary<L, count, weighs_lost>(samples, peaks, weight, sb, sent, cost, energy);
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
                        scalefactor_offers &offers) {
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
            noise[part][i] = zero;
            noise[part][refined_scales + i] =
                (weighs_lost ? error + lost * weight_of_lost : error) * w[part];
        }
        cut_off<V, refined_scales, refined_above>(index[part], noise[part]);
    }
    V least[range_count], at[range_count];
#pragma GCC unroll 6
    for (int r = 0; r < (parts == 1 ? 1 : range_count); ++r) {
        const part_range range = part_ranges[r];
        V loudest = square[range.first];
        for (int part = range.first + 1; part < range.end; ++part)
            loudest = max_of(square[part], loudest);
        // Far above a part's samples the error is a uniform one.
        const auto uniform = [&](int i, int part, V below, V found) {
            const double scale = scaled_up(refined_above - i);
            return select(splat<V>(i) < below,
                          min_of(loudest * splat<V>(scale * scale), whole[part]) * w[part], found);
        };
        least_noise<V, refined_scales, refined_above>(range, index, noise, uniform, least[r], at[r]);
    }
    if constexpr (parts == 1) {
        store(offers.index[0][0] + sb, at[0]);
    } else {
        store_offers(least, at, weight, energy, sb, offers);
    }
}

template <class V>
void refine(const part_samples *samples, int parts, const part_scalefactors (&peaks)[3],
            const part_values &weight, const part_values &energy, const double (&half)[32], int first,
            int end, scalefactor_offers &offers) noexcept {
    over_variants<V>(parts, first, end, [&]<class L, int count, bool weighs_lost>(int sb) {
        if (any_finer<L>(half + sb))
            refine<L, count, weighs_lost>(samples, peaks, weight, energy, load<L>(half + sb), sb,
                                          offers);
    });
}

} // namespace vela::VELA_LEVEL
