// The steps of the tuned search that look at all subbands. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "coding/noise_kernels.hpp"
#include "coding/tuned_selection.hpp"
#include "simd/lanes.hpp"

namespace vela::VELA_LEVEL {

/// The least and the greatest of a vector's lanes in memory.
template <class V>
VELA_INLINE double least_lane(const double *p) {
    double least = p[0];
    for (int i = 1; i < lanes<V>; ++i)
        least = min_of(p[i], least);
    return least;
}
template <class V>
VELA_INLINE double greatest_lane(const double *p) {
    double greatest = p[0];
    for (int i = 1; i < lanes<V>; ++i)
        greatest = max_of(p[i], greatest);
    return greatest;
}

/// Rows, or neighbouring subbands of one, side by side: each waits for the result of its last comparison.
/// @param coarse, fine  as of the kernel
template <class V, int rows, int neighbours>
VELA_INLINE void climb_rows(const unit_costs *costs, double slope, int first,
                            const unit_choices *coarse, const unit_choices *fine,
                            unit_choices *choices) {
    constexpr int count = rows * neighbours;
    const V price = splat<V>(slope), inverse_price = splat<V>(1 / slope);
    const auto row = [](int i) { return i / neighbours; };
    const auto subband = [first](int i) { return first + i % neighbours * lanes<V>; };
    const quantizer_set::group &group = quantizers_of<V>(*costs->set, first);
    V cost[count], spent[count], quantizer[count];
    // A lesser slope climbs at least as far, a greater one at most.
    double low = group.quantizers[0] + 1, high = quantizer_count;
    if (coarse != nullptr) {
        low = quantizer_count;
        for (int i = 0; i < count; ++i) {
            const unit_choices &from = coarse[row(i)];
            cost[i] = load<V>(from.cost + subband(i));
            spent[i] = load<V>(from.bits + subband(i));
            quantizer[i] = load<V>(from.quantizer + subband(i));
            low = min_of(least_lane<V>(from.quantizer + subband(i)), low);
        }
    } else {
        const int q = group.quantizers[0];
        for (int i = 0; i < count; ++i) {
            cost[i] = load<V>(costs[row(i)].quantized[q] + subband(i));
            spent[i] = bits_of_quantizer<V>(costs[row(i)], q, subband(i));
            quantizer[i] = splat<V>(q + 1);
        }
    }
    if (fine != nullptr) {
        high = 0;
        for (int i = 0; i < count; ++i)
            high = max_of(greatest_lane<V>(fine[row(i)].quantizer + subband(i)), high);
    }
    // Nor do bits pay that cost more than all the cost that is left; a little more, for rounding.
    V most = spent[0] + cost[0] * inverse_price;
    for (int i = 1; i < count; ++i)
        most = max_of(spent[i] + cost[i] * inverse_price, most);
    double limits[lanes<V>];
    store(limits, most);
    const double most_bits = greatest_lane<V>(limits) * (1 + 1e-9) + 1;
    const int end = group.before[static_cast<int>(high)];
    for (int k = group.before[static_cast<int>(low)]; k < end; ++k) {
        const int q = group.quantizers[k];
        if (costs->set->sample_bits[q] > most_bits) break;
        for (int i = 0; i < count; ++i) {
            // Compared by differences, rounding cannot make a greater slope climb further than a lesser.
            const V there = load<V>(costs[row(i)].quantized[q] + subband(i));
            const V wanted = bits_of_quantizer<V>(costs[row(i)], q, subband(i));
            const auto worth = price * (wanted - spent[i]) < cost[i] - there;
            cost[i] = select(worth, there, cost[i]);
            spent[i] = raised(worth, wanted, spent[i]);
            quantizer[i] = raised(worth, splat<V>(q + 1), quantizer[i]);
        }
    }
    for (int i = 0; i < count; ++i) {
        unit_choices &to = choices[row(i)];
        store(to.quantizer + subband(i), quantizer[i]);
        store(to.bits + subband(i), spent[i]);
        store(to.cost + subband(i), cost[i]);
    }
}

template <class V>
void climb(const unit_costs *costs, int rows, double slope, int first, int end,
           const unit_choices *coarse, const unit_choices *fine, unit_choices *choices) noexcept {
    if (rows == 2) {
        over_subbands<V>(first, end, [&]<class L>(int sb) {
            climb_rows<L, 2, 1>(costs, slope, sb, coarse, fine, choices);
        });
    } else if constexpr (lanes<V> < 4) {
        for (int sb = first; sb < end; sb += 2 * lanes<V>)
            climb_rows<V, 1, 2>(costs, slope, sb, coarse, fine, choices);
    } else {
        over_subbands<V>(first, end, [&]<class L>(int sb) {
            climb_rows<L, 1, 1>(costs, slope, sb, coarse, fine, choices);
        });
    }
}

/// Of whole numbers, which add up the same in any order.
template <class V>
VELA_INLINE int sum_of_lanes(V a) {
    double values[lanes<V>], sum = 0;
    store(values, a);
    for (const double value : values)
        sum += value;
    return static_cast<int>(sum);
}

template <class V>
reached reach(const unit_costs *costs, const unit_choices *climbed, int rows, double slope, int first,
              int end, unit_choices *choices) noexcept {
    using G = grouped<V>;
    const G price = splat<G>(slope), zero = splat<G>(0.0);
    G bits = zero, subbands = zero;
    for (int r = 0; r < rows; ++r) {
        const unit_choices &from = climbed[r];
        unit_choices &to = choices[r];
        for (int sb = first; sb < end; sb += lanes<G>) {
            const G none = load<G>(costs[r].unquantized + sb);
            const G cost = load<G>(from.cost + sb), spent = load<G>(from.bits + sb);
            const auto worth = price * spent < none - cost;
            const G wanted = where(worth, spent);
            store(to.quantizer + sb, where(worth, load<G>(from.quantizer + sb)));
            store(to.bits + sb, wanted);
            store(to.cost + sb, select(worth, cost, none));
            bits = bits + wanted;
            subbands = subbands + where(worth, splat<G>(1.0));
        }
    }
    return {sum_of_lanes(bits), sum_of_lanes(subbands)};
}

template <class V>
void favour(unit_costs &costs, const double (&factor)[32], int first, int end) noexcept {
    over_subbands<V>(first, end, [&]<class L>(int sb) {
        const L slope = load<L>(costs.first_slope + sb) * load<L>(factor + sb);
        L none = splat<L>(1e200);
        const quantizer_set::group &group = quantizers_of<L>(*costs.set, sb);
        for (int i = 0; i < group.count; ++i) {
            const int q = group.quantizers[i];
            const L wanted = bits_of_quantizer<L>(costs, q, sb);
            none = min_of(load<L>(costs.quantized[q] + sb) + slope * wanted, none);
        }
        store(costs.unquantized + sb, none);
    });
}

template <class V>
void best_steps(const unit_costs &costs, const unit_choices &from, double affordable, int first,
                int end, unit_steps &steps) noexcept {
    over_subbands<V>(first, end, [&]<class L>(int sb) {
        const L room = splat<L>(affordable), zero = splat<L>(0.0);
        const L cost = load<L>(from.cost + sb), bits = load<L>(from.bits + sb);
        const double most_bits = affordable + greatest_lane<L>(from.bits + sb);
        L slope = zero, quantizer = zero;
        const quantizer_set::group &group = quantizers_of<L>(*costs.set, sb);
        int i = group.before[static_cast<int>(least_lane<L>(from.quantizer + sb))];
        for (; i < group.count && costs.set->sample_bits[group.quantizers[i]] <= most_bits; ++i) {
            const int q = group.quantizers[i];
            const L more = bits_of_quantizer<L>(costs, q, sb) - bits;
            const L less = cost - load<L>(costs.quantized[q] + sb);
            // Quantizers that do not take away cost, or take fewer bits, have no slope above 0.
            const L s = select(zero < more, select(room < more, zero, less / more), zero);
            const auto steeper = slope < s;
            slope = select(steeper, s, slope);
            quantizer = select(steeper, splat<L>(q + 1), quantizer);
        }
        store(steps.slope + sb, slope);
        store(steps.quantizer + sb, quantizer);
    });
}

} // namespace vela::VELA_LEVEL
