// Peaks, the joint channel and the quantizers. Lanes are subbands.
#pragma once

#include "coding/kernels.hpp"
#include "simd/lanes.hpp"

namespace vela::VELA_LEVEL {

template <class V>
void peaks(const part_samples &samples, double (&peak)[32]) noexcept {
    for (int sb = 0; sb < 32; sb += lanes<V>) {
        V largest = splat<V>(0.0);
        for (const auto &row : samples)
            largest = max_of(magnitude(load<V>(row + sb)), largest);
        store(peak + sb, largest);
    }
}

template <class V>
void combine(const part_samples &left, const part_samples &right, part_samples &out) noexcept {
    for (int j = 0; j < 12; ++j) {
        for (int sb = 0; sb < 32; sb += lanes<V>) {
            store(out[j] + sb, (load<V>(left[j] + sb) + load<V>(right[j] + sb)) * splat<V>(0.5));
        }
    }
}

/// ISO/IEC 11172-3, C.1.5.1.7: y = A x + B; the n + 1 top bits of y in two's complement, the first one
/// inverted, that is y 2^n truncated plus 2^n, or (y + 1) 2^n truncated below zero.
template <class V>
void quantize_layer1(const part_samples &samples, const part_quantizer &q, int first, int end,
                     part_codes &codes) noexcept {
    const V zero = splat<V>(0.0), one = splat<V>(1.0);
    for (int sb = first; sb < end; sb += lanes<V>) {
        const V inverse = load<V>(q.inverse_scalefactor + sb), a = load<V>(q.a + sb),
                b = load<V>(q.b + sb);
        const V top = load<V>(q.half_steps + sb), limit = load<V>(q.limit + sb);
        for (int j = 0; j < 12; ++j) {
            const V y = load<V>(samples[j] + sb) * inverse * a + b;
            const auto positive = y >= zero;
            const V base = select(positive, top, zero);
            // Not a number takes the lower branch, where the limit turns it into code 0.
            const V magnitude_bits = clamp(select(positive, y, y + one) * top, zero, limit - base);
            store(codes[j] + sb, truncated(magnitude_bits) + truncated(base));
        }
    }
}

/// ISO/IEC 11172-3, C.1.5.2.6, in closed form: for x in [-1, 1) the quantizer's codes are
/// (x + 1) steps / 2, truncated.
template <class V>
void quantize_layer2(const part_samples &samples, const part_quantizer &q, int first, int end,
                     part_codes &codes) noexcept {
    for (int sb = first; sb < end; sb += lanes<V>) {
        const V inverse = load<V>(q.inverse_scalefactor + sb), half_steps = load<V>(q.half_steps + sb);
        const V limit = load<V>(q.limit + sb);
        for (int j = 0; j < 12; ++j) {
            const V x = load<V>(samples[j] + sb) * inverse;
            store(codes[j] + sb,
                  truncated(clamp((x + splat<V>(1.0)) * half_steps, splat<V>(0.0), limit)));
        }
    }
}

} // namespace vela::VELA_LEVEL
