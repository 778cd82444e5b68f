// The sample section of a frame, bit by bit. Integer work without lanes: a level contributes its
// shifts.
#pragma once

#include "coding/kernels.hpp"

namespace vela::VELA_LEVEL {

inline void pack_layer1(const coded_subband *coded, int count, bit_cursor &bits) noexcept {
    bit_cursor cursor = bits;
    for (int j = 0; j < 12; ++j) {
        for (int i = 0; i < count; ++i)
            cursor.put(static_cast<std::uint32_t>(coded[i].codes[32 * j]), coded[i].layout.bits);
    }
    bits = cursor;
}

/// Without a branch between grouped and separate code words: they alternate from subband to subband.
inline void pack_layer2(const coded_subband *coded, int count, bit_cursor &bits) noexcept {
    bit_cursor cursor = bits;
    for (int granule = 0; granule < 12; ++granule) {
        for (int i = 0; i < count; ++i) {
            const coded_subband &c = coded[i];
            const std::int32_t *const codes = c.codes + 3 * 32 * granule;
            std::uint64_t field = 0;
            for (int j = 0; j < 3; ++j)
                field += static_cast<std::uint64_t>(codes[32 * j]) * c.layout.place_value[j];
            cursor.put(field, c.layout.bits);
        }
    }
    bits = cursor;
}

} // namespace vela::VELA_LEVEL
