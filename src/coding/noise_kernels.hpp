// The noise that quantizing leaves in the subbands, and what it costs. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "simd/lanes.hpp"
#include "simd/math.hpp"

namespace vela::VELA_LEVEL {

/// Of a quantizer whose levels are the integers up to (steps - 1) / 2 on both sides of 0.
template <class V>
VELA_INLINE V nearest_level(V magnitude, int steps) {
    return min_of(nearest(magnitude), splat<V>((steps - 1) * 0.5));
}

template <class V>
void sum_products(const part_samples &a, const part_samples &b, double (&sum)[32]) noexcept {
    for (int sb = 0; sb < 32; sb += lanes<V>) {
        V products = splat<V>(0.0);
        for (int j = 0; j < 12; ++j)
            products = products + load<V>(a[j] + sb) * load<V>(b[j] + sb);
        store(sum + sb, products);
    }
}

template <class V>
void own_noise(const part_samples &samples, const part_scalefactors &scalefactors,
               part_noise &noise) noexcept {
    const V zero = splat<V>(0.0);
    for (int sb = 0; sb < 32; sb += lanes<V>) {
        const V inverse = load<V>(scalefactors.inverse + sb), scale = load<V>(scalefactors.value + sb);
        V energy = zero, error[coarse_count] = {zero, zero, zero, zero};
        for (const auto &row : samples) {
            const V x = load<V>(row + sb), size = magnitude(x) * inverse;
            energy = energy + x * x;
#pragma GCC unroll 4
            for (int q = 0; q < coarse_count; ++q) {
                // In units of the quantizer's levels, which lie 2 scf / steps apart.
                const V y = size * splat<V>(coarse_steps[q] * 0.5);
                const V e = y - nearest_level(y, coarse_steps[q]);
                error[q] = error[q] + e * e;
            }
        }
        for (int q = 0; q < coarse_count; ++q) {
            const V unit = scale * splat<V>(2.0 / coarse_steps[q]);
            store(noise.coarse[q] + sb, error[q] * (unit * unit));
        }
        store(noise.unquantized + sb, energy);
        store(noise.residue + sb, zero);
        store(noise.most + sb, energy);
        store(noise.scale_square + sb, scale * scale);
    }
}

/// For a subband whose samples both channels share: noise is what a channel's samples differ from its
/// scale factor times the shared ones.
template <class V>
void shared_noise(const part_samples &samples, const part_scalefactors &scalefactors,
                  const part_samples &shared, const part_scalefactors &shared_scalefactors,
                  part_noise &noise) noexcept {
    const V zero = splat<V>(0.0);
    for (int sb = 0; sb < 32; sb += lanes<V>) {
        const V inverse = load<V>(shared_scalefactors.inverse + sb);
        const V scale = load<V>(scalefactors.value + sb);
        V energy = zero, residue = zero, error[coarse_count] = {zero, zero, zero, zero};
        for (int j = 0; j < 12; ++j) {
            const V x = load<V>(samples[j] + sb), z = load<V>(shared[j] + sb) * inverse;
            energy = energy + x * x;
            const V difference = x - scale * z;
            residue = residue + difference * difference;
            const V size = magnitude(z), own = select(z < zero, zero - x, x);
#pragma GCC unroll 4
            for (int q = 0; q < coarse_count; ++q) {
                const V level = nearest_level(size * splat<V>(coarse_steps[q] * 0.5), coarse_steps[q]);
                const V e = own - scale * (level * splat<V>(2.0 / coarse_steps[q]));
                error[q] = error[q] + e * e;
            }
        }
        for (int q = 0; q < coarse_count; ++q)
            store(noise.coarse[q] + sb, error[q]);
        store(noise.unquantized + sb, energy);
        store(noise.residue + sb, residue);
        store(noise.most + sb, splat<V>(1e300));
        store(noise.scale_square + sb, scale * scale);
    }
}

template <class V>
void add_noise_costs(const part_noise &noise, const double (&weight)[32], noise_costs &costs) noexcept {
    for (int sb = 0; sb < 32; sb += lanes<V>) {
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

} // namespace vela::VELA_LEVEL
