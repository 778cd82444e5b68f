// The noise that quantizing leaves in the subbands, and what it costs. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "coding/scalefactor_table.hpp"
#include "psy/tuned_parameters.hpp"
#include "simd/lanes.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// At most four lanes: subbands that are shared begin at any multiple of four.
template <class V>
using grouped = lane_type<(lanes<V> > 4 ? 4 : lanes<V>)>;

/// Runs step.operator()<V>(sb) for subbands first .. end - 1, both multiples of 4: as many at once as V has
/// lanes, and four where eight are too many.
template <class V, class Step>
VELA_INLINE void over_subbands(int first, int end, Step step) {
    int sb = first;
    for (; sb + lanes<V> <= end; sb += lanes<V>)
        step.template operator()<V>(sb);
    if constexpr (lanes < V >> 4) {
        if (sb < end) step.template operator()<grouped<V>>(sb);
    }
}

/// The quantizers that any of the lanes' subbands has. Others that a subband does not have are barred.
template <class V>
VELA_INLINE const quantizer_set::group &quantizers_of(const quantizer_set &set, int sb) {
    return (lanes<V> > 4 ? set.pairs : set.groups)[sb / 4];
}

template <class V>
VELA_INLINE V bits_of_quantizer(const unit_costs &costs, int q, int sb) {
    const double *const opening = q == 0 ? costs.ternary_opening : costs.opening;
    return load<V>(opening + sb) + splat<V>(costs.set->sample_bits[q]);
}

/// By quantizers. Those with up to nine steps: half of the steps, of the levels, which are the integers up
/// to (steps - 1) / 2 on both sides of 0, and how far these lie apart for a scale factor of 1. All others:
/// the noise of twelve samples for a scale factor of 1, of the variance step^2 / 12.
struct coarse_quantizer {
    double half_steps, highest, unit;
};
inline constexpr coarse_quantizer coarse_quantizers[coarse_count] = {
    {1.5, 1, 2.0 / 3}, {2.5, 2, 2.0 / 5}, {3.5, 3, 2.0 / 7}, {4.5, 4, 2.0 / 9}};
inline constexpr table<double, quantizer_count> uniform_noise = [] {
    table<double, quantizer_count> made{};
    for (int q = coarse_count; q < quantizer_count; ++q) {
        const double steps = static_cast<double>((8 << (q - coarse_count + 1)) - 1);
        made[q] = 4.0 / (steps * steps);
    }
    return made;
}();

template <class V>
void sum_products(const part_samples &a, const part_samples &b, int first, int end,
                  double (&sum)[32]) noexcept {
    over_subbands<V>(first, end, [&]<class L>(int sb) {
        L products = splat<L>(0.0);
        for (int j = 0; j < 12; ++j)
            products = products + load<L>(a[j] + sb) * load<L>(b[j] + sb);
        store(sum + sb, products);
    });
}

/// The error of a coarse quantizer with twelve samples for a scale factor of 1.
template <class V>
VELA_INLINE V coarse_error(const V (&size)[12], int q) {
    const V half_steps = splat<V>(coarse_quantizers[q].half_steps);
    const V highest = splat<V>(coarse_quantizers[q].highest);
    const double unit = coarse_quantizers[q].unit;
    V error = splat<V>(0.0);
    for (const V s : size) {
        // In units of the quantizer's levels.
        const V y = s * half_steps, e = y - min_of(nearest(y), highest);
        error = error + e * e;
    }
    return error * splat<V>(unit * unit);
}

/// Finishes the costs of some subbands: bars quantizers, and makes those of infinite samples such as others
/// can be compared with.
/// @param cost_of  (q): the weighted noise
template <class V, class Cost>
VELA_INLINE void finish_costs(unit_costs &costs, int sb, V unquantized, Cost cost_of) {
    const V most = splat<V>(1e200);
    const V none = min_of(unquantized, most);
    store(costs.unquantized + sb, none);
    V gain = splat<V>(0.0), bits = splat<V>(1.0);
    // With eight lanes other kernels may look at these subbands together with others.
    for (int q = 0; q < quantizer_count && VELA_LANES > 4; ++q)
        store(costs.quantized[q] + sb, load<V>(costs.set->barred[q].begin() + sb));
    const quantizer_set::group &group = quantizers_of<V>(*costs.set, sb);
    for (int i = 0; i < group.count; ++i) {
        const int q = group.quantizers[i];
        const V barred = load<V>(costs.set->barred[q].begin() + sb);
        const V cost = max_of(barred, min_of(cost_of(q), most));
        store(costs.quantized[q] + sb, cost);
        const V less = none - cost, wanted = bits_of_quantizer<V>(costs, q, sb);
        const auto steeper = gain * wanted < less * bits;
        gain = select(steeper, less, gain);
        bits = select(steeper, wanted, bits);
    }
    store(costs.first_slope + sb, gain / bits);
}

template <class V>
void own_costs(const part_samples *samples, int parts, const part_scalefactors (&scalefactors)[3],
               const part_values &weight, const part_values &energy, const double (&ternary)[32],
               int end, unit_costs &costs) noexcept {
    over_subbands<V>(0, end, [&]<class L>(int sb) {
        const L zero = splat<L>(0.0);
        const quantizer_set::group &group = quantizers_of<L>(*costs.set, sb);
        L whole = zero, coarse[coarse_count] = {}, w[3], most[3], scale_square[3];
        for (int part = 0; part < parts; ++part) {
            const L inverse = load<L>(scalefactors[part].inverse + sb);
            const L scale = load<L>(scalefactors[part].value + sb);
            scale_square[part] = scale * scale;
            w[part] = load<L>(weight[part] + sb);
            most[part] = load<L>(energy[part] + sb);
            whole = whole + w[part] * most[part];
            L size[12];
            for (int j = 0; j < 12; ++j)
                size[j] = magnitude(load<L>(samples[part][j] + sb)) * inverse;
            // Three steps have scale factors of their own.
            for (int i = 1; i < group.count && group.quantizers[i] < coarse_count; ++i) {
                const int q = group.quantizers[i];
                coarse[q] = coarse[q] + w[part] * (coarse_error<L>(size, q) * scale_square[part]);
            }
        }
        finish_costs(costs, sb, whole, [&](int q) {
            const L left = splat<L>(tuned::left_by_refining);
            if (q == 0) return load<L>(ternary + sb); // refined already
            if (q < coarse_count) return coarse[q] * left;
            L cost = zero;
            for (int part = 0; part < parts; ++part)
                cost = cost
                       + w[part] * min_of(scale_square[part] * splat<L>(uniform_noise[q]), most[part]);
            return cost * left;
        });
    });
}

template <class V>
VELA_INLINE V scalefactors_at(V index) {
    double number[lanes<V>], value[lanes<V>];
    store(number, index);
    for (int i = 0; i < lanes<V>; ++i)
        value[i] = scalefactor_table[static_cast<int>(number[i])];
    return load<V>(value);
}

/// Where samples u are as mix() makes them, both channels' weighted noise of other ones l is what it is with
/// them plus (w0 s0^2 + w1 s1^2) (l - u)^2.
template <class V>
void shared_costs(const shared_parts &frame, const part_samples *mixed, int parts, int first, int end,
                  unit_costs &costs) noexcept {
    over_subbands<V>(first, end, [&]<class L>(int sb) {
        const L zero = splat<L>(0.0);
        const quantizer_set::group &group = quantizers_of<L>(*costs.set, sb);
        L whole = zero, residue = zero, squares = zero, coarse[coarse_count] = {};
        for (int part = 0; part < parts; ++part) {
            L square = zero, energy = zero, kept = zero, size[12];
            for (int ch = 0; ch < 2; ++ch) {
                const L w = load<L>((*frame.weight[ch])[part] + sb);
                const L scale = scalefactors_at(load<L>((*frame.index[ch])[part] + sb));
                square = square + w * (scale * scale);
                energy = energy + w * load<L>((*frame.energy[ch])[part] + sb);
            }
            for (int j = 0; j < 12; ++j) {
                size[j] = magnitude(load<L>(mixed[part][j] + sb));
                kept = kept + size[j] * size[j];
            }
            for (int i = 0; i < group.count && group.quantizers[i] < coarse_count; ++i) {
                const int q = group.quantizers[i];
                coarse[q] = coarse[q] + square * coarse_error<L>(size, q);
            }
            whole = whole + energy;
            residue = residue + (energy - square * kept);
            squares = squares + square;
        }
        finish_costs(costs, sb, whole, [&](int q) {
            const L noise = q < coarse_count ? coarse[q] : squares * splat<L>(uniform_noise[q]);
            return (residue + noise) * splat<L>(tuned::left_by_refining_shared);
        });
    });
}

} // namespace vela::VELA_LEVEL
