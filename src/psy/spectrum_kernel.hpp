// Energy and unpredictability of each line (ISO/IEC 11172-3, D.2.4). Lanes are lines.
#pragma once

#include "psy/kernels.hpp"
#include "simd/lanes.hpp"

#include <array>

namespace vela::VELA_LEVEL {

/// |X[k]|^2 = (a^2 + b^2) / 2, but H[k]^2 for the unpaired lines 0 and 512.
inline constexpr std::array<double, padded_lines> energy_scale = [] {
    std::array<double, padded_lines> scale{};
    scale.fill(0.5);
    scale[0] = scale[512] = 1.0;
    return scale;
}();

/// The unpredictability of a line is the distance of its value X from the value predicted from the two
/// passes before, relative to the sum of their magnitudes:
///
///     r^ = 2 r' - r''    phi^ = 2 phi' - phi''    c = |X - r^ e^(i phi^)| / (r + |r^|)
///
/// The cosine and sine of phi^ need no trigonometric function. A pair gives cos phi = (a + b) / 2r and
/// sin phi = (b - a) / 2r, hence cos 2 phi = 2ab / 2r^2 and sin 2 phi = (b^2 - a^2) / 2r^2: P / D and Q
/// / D are first these for the previous pass, then, turned back by phi'', cos phi^ and sin phi^.
template <class V>
void analyze_lines(const line_pairs &pass, const pass_history &previous, pass_history &oldest,
                   spectrum &out) noexcept {
    const V zero = splat<V>(0.0), one = splat<V>(1.0), two = splat<V>(2.0), half = splat<V>(0.5);
    for (int k = 0; k < padded_lines; k += lanes<V>) {
        const V a = load<V>(pass.a + k), b = load<V>(pass.b + k);
        const V energy = (a * a + b * b) * load<V>(energy_scale.data() + k);
        const V r = square_root(energy);

        const V a1 = load<V>(previous.pair.a + k), b1 = load<V>(previous.pair.b + k),
                r1 = load<V>(previous.r + k);
        const auto no_previous = r1 == zero;
        V P = select(no_previous, one, two * a1 * b1);
        V Q = select(no_previous, zero, b1 * b1 - a1 * a1);
        V D = select(no_previous, one, two * r1 * r1);

        const V a2 = load<V>(oldest.pair.a + k), b2 = load<V>(oldest.pair.b + k),
                r2 = load<V>(oldest.r + k);
        const auto no_oldest = r2 == zero;
        const V m = (P + Q) * (a2 + b2) * half;
        const V turned_p = m - Q * a2, turned_q = m - b2 * P;
        P = select(no_oldest, P, turned_p);
        Q = select(no_oldest, Q, turned_q);
        D = select(no_oldest, D, D * r2);

        const V predicted = two * r1 - r2;
        const V size = magnitude(predicted) + r;
        const V g = two * predicted / D;
        const V U = P * g - (a + b), V_ = Q * g - (b - a);
        const V c = square_root(U * U + V_ * V_) / (two * (r + magnitude(predicted)));

        store(oldest.pair.a + k, a);
        store(oldest.pair.b + k, b);
        store(oldest.r + k, r);
        store(out.energy + k, energy);
        store(out.unpredictability + k, select(size == zero, zero, c));
    }
}

} // namespace vela::VELA_LEVEL
