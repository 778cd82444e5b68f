// Bits of a frame beside the samples.
#pragma once

#include "coding/frame.hpp"

namespace vela {

inline constexpr int scalefactor_bits = 6, scfsi_bits = 2;

inline int crc_bits(const coder_config &config) noexcept {
    return config.error_protection ? 16 : 0;
}

/// Header, CRC and allocation fields.
inline int fixed_bits(const coder_config &config, int joint_bound) noexcept {
    constexpr int header_bits = 32;
    int bits = header_bits + crc_bits(config);
    for (int sb = 0; sb < config.sblimit; ++sb) {
        bits += config.table->row(sb).alloc_bits * (sb < joint_bound ? config.channels : 1);
    }
    return bits;
}

/// Scale factors and their selection of a subband with bits.
inline int side_bits(const coder_config &config, const channel_scalefactors &chosen, int ch,
                     int sb) noexcept {
    if (config.layer == 1) return scalefactor_bits;
    return scfsi_bits + scalefactor_bits * scalefactors_per_scfsi[chosen.scfsi[ch][sb]];
}

} // namespace vela
