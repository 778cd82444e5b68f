// The sample section of a frame, bit by bit. Integer work without lanes: a level contributes its
// shifts.
#pragma once

#include "coding/kernels.hpp"

namespace vela::VELA_LEVEL {

inline void pack_layer1(const coded_subband *coded, int count, bit_cursor &bits) noexcept {
    bit_cursor cursor = bits;
    for (int j = 0; j < 12; ++j) {
        for (int i = 0; i < count; ++i)
            cursor.put(static_cast<std::uint32_t>(coded[i].codes[32 * j]), coded[i].bits);
    }
    bits = cursor;
}

inline void pack_layer2(const coded_subband *coded, int count, bit_cursor &bits) noexcept {
    bit_cursor cursor = bits;
    for (int granule = 0; granule < 12; ++granule) {
        for (int i = 0; i < count; ++i) {
            const coded_subband &c = coded[i];
            const std::int32_t *const codes = c.codes + 3 * 32 * granule;
            const auto c0 = static_cast<std::uint64_t>(codes[0]),
                       c1 = static_cast<std::uint64_t>(codes[32]),
                       c2 = static_cast<std::uint64_t>(codes[64]);
            if (c.grouped_steps != 0) {
                const std::uint64_t steps = c.grouped_steps;
                cursor.put(c0 + steps * (c1 + steps * c2), c.bits);
            } else {
                cursor.put((c0 << c.bits | c1) << c.bits | c2, 3U * c.bits);
            }
        }
    }
    bits = cursor;
}

} // namespace vela::VELA_LEVEL
