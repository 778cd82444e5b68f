// The steps of the tuned search that look at all subbands. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "simd/lanes.hpp"

namespace vela::VELA_LEVEL {

template <class V>
VELA_INLINE V bits_of_quantizer(const unit_costs &costs, int q, int sb) {
    const double *const opening = q == 0 ? costs.ternary_opening : costs.opening;
    return load<V>(opening + sb) + splat<V>(costs.set->sample_bits[q]);
}

/// Rows side by side: each waits for the result of its last comparison.
/// @param bits, subbands  added to
template <class V, int rows>
VELA_INLINE void reach_rows(const unit_costs *costs, V price, int sb, unit_choices *choices, V &bits,
                            V &subbands) {
    const V none = splat<V>(0.0);
    V cost[rows], spent[rows], quantizer[rows];
    for (int r = 0; r < rows; ++r) {
        cost[r] = load<V>(costs[r].unquantized + sb);
        spent[r] = quantizer[r] = none;
    }
    const quantizer_set::group &group = costs->set->groups[sb / 4];
    for (int i = 0; i < group.count; ++i) {
        const int q = group.quantizers[i];
        for (int r = 0; r < rows; ++r) {
            // Compared by differences, rounding cannot make a greater slope reach further than a lesser.
            const V there = load<V>(costs[r].quantized[q] + sb);
            const V wanted = bits_of_quantizer<V>(costs[r], q, sb);
            const auto worth = price * (wanted - spent[r]) < cost[r] - there;
            cost[r] = select(worth, there, cost[r]);
            spent[r] = select(worth, wanted, spent[r]);
            quantizer[r] = select(worth, splat<V>(q + 1), quantizer[r]);
        }
    }
    for (int r = 0; r < rows; ++r) {
        store(choices[r].quantizer + sb, quantizer[r]);
        store(choices[r].bits + sb, spent[r]);
        store(choices[r].cost + sb, cost[r]);
        bits = bits + spent[r];
        subbands = subbands + select(none < spent[r], splat<V>(1.0), none);
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
reached reach(const unit_costs *costs, int rows, double slope, int first, int end,
              unit_choices *choices) noexcept {
    const V price = splat<V>(slope);
    V bits = splat<V>(0.0), subbands = bits;
    for (int sb = first; sb < end; sb += lanes<V>) {
        if (rows == 2) {
            reach_rows<V, 2>(costs, price, sb, choices, bits, subbands);
        } else {
            reach_rows<V, 1>(costs, price, sb, choices, bits, subbands);
        }
    }
    return {sum_of_lanes(bits), sum_of_lanes(subbands)};
}

template <class V>
VELA_INLINE V first_slope(const unit_costs &costs, int sb) {
    const V none = load<V>(costs.unquantized + sb);
    V gain = splat<V>(0.0), bits = splat<V>(1.0);
    const quantizer_set::group &group = costs.set->groups[sb / 4];
    for (int i = 0; i < group.count; ++i) {
        const int q = group.quantizers[i];
        const V less = none - load<V>(costs.quantized[q] + sb);
        const V wanted = bits_of_quantizer<V>(costs, q, sb);
        const auto steeper = gain * wanted < less * bits;
        gain = select(steeper, less, gain);
        bits = select(steeper, wanted, bits);
    }
    return gain / bits;
}

template <class V>
void first_slopes(const unit_costs &costs, int first, int end, double (&slope)[32]) noexcept {
    for (int sb = first; sb < end; sb += lanes<V>)
        store(slope + sb, first_slope<V>(costs, sb));
}

template <class V>
void favour(unit_costs &costs, const double (&factor)[32], int first, int end) noexcept {
    for (int sb = first; sb < end; sb += lanes<V>) {
        const V slope = first_slope<V>(costs, sb) * load<V>(factor + sb);
        V none = splat<V>(1e200);
        const quantizer_set::group &group = costs.set->groups[sb / 4];
        for (int i = 0; i < group.count; ++i) {
            const int q = group.quantizers[i];
            const V wanted = bits_of_quantizer<V>(costs, q, sb);
            none = min_of(load<V>(costs.quantized[q] + sb) + slope * wanted, none);
        }
        store(costs.unquantized + sb, none);
    }
}

template <class V>
void best_steps(const unit_costs &costs, const unit_choices &from, double affordable, int first,
                int end, unit_steps &steps) noexcept {
    const V room = splat<V>(affordable), zero = splat<V>(0.0);
    for (int sb = first; sb < end; sb += lanes<V>) {
        const V cost = load<V>(from.cost + sb), bits = load<V>(from.bits + sb);
        V slope = zero, quantizer = zero;
        const quantizer_set::group &group = costs.set->groups[sb / 4];
        for (int i = 0; i < group.count; ++i) {
            const int q = group.quantizers[i];
            const V more = bits_of_quantizer<V>(costs, q, sb) - bits;
            const V less = cost - load<V>(costs.quantized[q] + sb);
            // Quantizers that do not take away cost, or take fewer bits, have no slope above 0.
            const V s = select(zero < more, select(room < more, zero, less / more), zero);
            const auto steeper = slope < s;
            slope = select(steeper, s, slope);
            quantizer = select(steeper, splat<V>(q + 1), quantizer);
        }
        store(steps.slope + sb, slope);
        store(steps.quantizer + sb, quantizer);
    }
}

} // namespace vela::VELA_LEVEL
