// The scale factors of both layers.
#pragma once

#include "simd/table.hpp"

#include <cstdint>

namespace vela {

/// Scale factors, ISO/IEC 11172-3 Table 3-B.1: 2^(1 - i/3) for i = 0..62, full scale 1.0, rounded to
/// the fourteen decimals printed there. Entry 63 is negative, so that no magnitude ever selects it.
inline constexpr table<double, 64> scalefactor_table = [] {
    // 2, 2^(2/3) and 2^(1/3) in units of 1e-18; every third entry halves.
    constexpr std::uint64_t octave[3] = {2'000'000'000'000'000'000U, 1'587'401'051'968'199'475U,
                                         1'259'921'049'894'873'165U};
    table<double, 64> made{};
    for (int i = 0; i < 63; ++i) {
        const int halvings = i / 3;
        const std::uint64_t unit = std::uint64_t{10'000} << halvings; // 1e-14 before the halvings
        made[i] = static_cast<double>((octave[i % 3] + unit / 2) / unit) / 1e14;
    }
    made[63] = -1e-20;
    return made;
}();

/// 1 / scalefactor_table[i].
inline constexpr table<double, 64> inverse_scalefactor = [] {
    table<double, 64> made{};
    for (int i = 0; i < 64; ++i)
        made[i] = 1.0 / scalefactor_table[i];
    return made;
}();

} // namespace vela
