// The scale factors of both layers.
#pragma once

#include <array>
#include <cstdint>

namespace vela {

/// Scale factors, ISO/IEC 11172-3 Table 3-B.1: 2^(1 - i/3) for i = 0..62, full scale 1.0, rounded to
/// the fourteen decimals printed there. Entry 63 is negative, so that no magnitude ever selects it.
inline constexpr std::array<double, 64> scalefactor_table = [] {
    // 2, 2^(2/3) and 2^(1/3) in units of 1e-18; every third entry halves.
    constexpr std::uint64_t octave[3] = {2'000'000'000'000'000'000U, 1'587'401'051'968'199'475U,
                                         1'259'921'049'894'873'165U};
    std::array<double, 64> table{};
    for (unsigned i = 0; i < 63; ++i) {
        const unsigned halvings = i / 3;
        const std::uint64_t unit = std::uint64_t{10'000} << halvings; // 1e-14 before the halvings
        table[i] = static_cast<double>((octave[i % 3] + unit / 2) / unit) / 1e14;
    }
    table[63] = -1e-20;
    return table;
}();

/// 1 / scalefactor_table[i].
inline constexpr std::array<double, 64> inverse_scalefactor = [] {
    std::array<double, 64> table{};
    for (unsigned i = 0; i < 64; ++i)
        table[i] = 1.0 / scalefactor_table[i];
    return table;
}();

} // namespace vela
