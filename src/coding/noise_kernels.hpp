// The noise that quantizing leaves in the subbands, and what it costs. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "psy/tuned_parameters.hpp"
#include "simd/lanes.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// Of a quantizer whose levels are the integers up to (steps - 1) / 2 on both sides of 0.
template <class V>
VELA_INLINE V nearest_level(V magnitude, int steps) {
    return min_of(nearest(magnitude), splat<V>((steps - 1) * 0.5));
}

template <class V>
void sum_products(const part_samples &a, const part_samples &b, int first, int end,
                  double (&sum)[32]) noexcept {
    for (int sb = first; sb < end; sb += lanes<V>) {
        V products = splat<V>(0.0);
        for (int j = 0; j < 12; ++j)
            products = products + load<V>(a[j] + sb) * load<V>(b[j] + sb);
        store(sum + sb, products);
    }
}

template <class V>
void own_noise(const part_samples &samples, const part_scalefactors &scalefactors, int first, int end,
               part_noise &noise) noexcept {
    const V zero = splat<V>(0.0);
    for (int sb = first; sb < end; sb += lanes<V>) {
        const V inverse = load<V>(scalefactors.inverse + sb), scale = load<V>(scalefactors.value + sb);
        V energy = zero, error[coarse_count] = {zero, zero, zero, zero};
        for (const auto &row : samples) {
            const V x = load<V>(row + sb), size = magnitude(x) * inverse;
            energy = energy + x * x;
#pragma GCC unroll 4
            for (int q = 1; q < coarse_count; ++q) {
                // In units of the quantizer's levels, which lie 2 scf / steps apart.
                const V y = size * splat<V>(coarse_steps[q] * 0.5);
                const V e = y - nearest_level(y, coarse_steps[q]);
                error[q] = error[q] + e * e;
            }
        }
        store(noise.coarse[0] + sb, zero);
        for (int q = 1; q < coarse_count; ++q) {
            const V unit = scale * splat<V>(2.0 / coarse_steps[q]);
            store(noise.coarse[q] + sb, error[q] * (unit * unit));
        }
        store(noise.unquantized + sb, energy);
        store(noise.residue + sb, zero);
        store(noise.most + sb, energy);
        store(noise.scale_square + sb, scale * scale);
    }
}

/// For subbands whose samples both channels share: noise is what a channel's samples differ from its
/// scale factor times the shared ones. Of a level l that is x^2 - 2 s x l + s^2 l^2.
template <class V>
void shared_noise(const part_samples &left, const part_samples &right,
                  const part_scalefactors (&scalefactors)[2], const part_samples &shared,
                  const part_scalefactors &shared_scalefactors, int first, int end,
                  part_noise (&noise)[2]) noexcept {
    const V zero = splat<V>(0.0);
    constexpr int count = coarse_count + 1; // the last one is for no quantizer at all
    for (int sb = first; sb < end; sb += lanes<V>) {
        const V inverse = load<V>(shared_scalefactors.inverse + sb);
        V energy[2] = {zero, zero}, product[2][count], square[count];
        for (int q = 0; q < count; ++q)
            product[0][q] = product[1][q] = square[q] = zero;
        for (int j = 0; j < 12; ++j) {
            const V x = load<V>(left[j] + sb), y = load<V>(right[j] + sb);
            const V z = load<V>(shared[j] + sb) * inverse, size = magnitude(z);
            const auto below = z < zero;
            const V own[2] = {select(below, zero - x, x), select(below, zero - y, y)};
            energy[0] = energy[0] + x * x;
            energy[1] = energy[1] + y * y;
#pragma GCC unroll 5
            for (int q = 0; q < count; ++q) {
                V level = size;
                if (q < coarse_count)
                    level = nearest_level(size * splat<V>(coarse_steps[q] * 0.5), coarse_steps[q])
                            * splat<V>(2.0 / coarse_steps[q]);
                square[q] = square[q] + level * level;
                product[0][q] = product[0][q] + own[0] * level;
                product[1][q] = product[1][q] + own[1] * level;
            }
        }
        for (int ch = 0; ch < 2; ++ch) {
            const V scale = load<V>(scalefactors[ch].value + sb), scale_square = scale * scale;
            const auto noise_of = [&](int q) {
                return (energy[ch] - (scale + scale) * product[ch][q]) + scale_square * square[q];
            };
            for (int q = 0; q < coarse_count; ++q)
                store(noise[ch].coarse[q] + sb, noise_of(q));
            store(noise[ch].unquantized + sb, energy[ch]);
            store(noise[ch].residue + sb, noise_of(coarse_count));
            store(noise[ch].most + sb, splat<V>(1e300));
            store(noise[ch].scale_square + sb, scale_square);
        }
    }
}

template <class V>
void add_noise_costs(const part_noise &noise, const double (&weight)[32], int first, int end,
                     noise_costs &costs) noexcept {
    for (int sb = first; sb < end; sb += lanes<V>) {
        const V w = load<V>(weight + sb), square = load<V>(noise.scale_square + sb);
        const V residue = load<V>(noise.residue + sb), most = load<V>(noise.most + sb);
        const auto add = [&](double(&cost)[32], V energy) {
            store(cost + sb, load<V>(cost + sb) + w * energy);
        };
        add(costs.unquantized, load<V>(noise.unquantized + sb));
        for (int q = 0; q < coarse_count; ++q)
            add(costs.quantized[q], load<V>(noise.coarse[q] + sb));
        // Twelve samples of the variance step^2 / 12, step = 2 scf / steps.
        for (int q = coarse_count; q < quantizer_count; ++q) {
            const double steps = static_cast<double>((8 << (q - coarse_count + 1)) - 1);
            add(costs.quantized[q], min_of(residue + square * splat<V>(4.0 / (steps * steps)), most));
        }
    }
}

/// Infinite samples have costs that others can be compared with.
template <class V>
void finish_costs(int first, int end, unit_costs &costs) noexcept {
    const V most = splat<V>(1e200), left = splat<V>(tuned::left_by_refining);
    for (int sb = first; sb < end; sb += lanes<V>) {
        store(costs.unquantized + sb, min_of(load<V>(costs.unquantized + sb), most));
        const quantizer_set::group &group = costs.set->groups[sb / 4];
        for (int i = 0; i < group.count; ++i) {
            const int q = group.quantizers[i];
            double *const cost = costs.quantized[q] + sb;
            const V barred = load<V>(costs.set->barred[q].begin() + sb);
            store(cost, max_of(barred, min_of(load<V>(cost) * left, most)));
        }
    }
}

} // namespace vela::VELA_LEVEL
