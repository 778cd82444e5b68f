// The bit layout of a frame.
//
//    +--------+------+------------+------------------+---------------+---------+---------------+
//    | header | CRC  | allocation | scfsi (Layer II) | scale factors | samples | zero stuffing |
//    +--------+------+------------+------------------+---------------+---------+---------------+
//       32     0/16    0..4 each     2 each             6 each
#pragma once

#include "coding/frame.hpp"
#include "stream/bit_buffer.hpp"

#include <cstdint>

namespace vela {

/// CRC of a frame: the header's last 16 bits, the allocation fields and, in Layer II, the scfsi fields.
std::uint32_t frame_crc(const coder_config &config, std::uint32_t header_word,
                        const side_info &side) noexcept;

/// Allocation, scfsi and scale factors.
void pack_side_info(const coder_config &config, const side_info &side, bit_buffer &bits) noexcept;

/// The samples, in Layer II grouped in threes where the quantizer has 3, 5 or 9 steps.
void pack_samples(const coding_kernels &kernels, const coder_config &config, const side_info &side,
                  const sample_codes &codes, bit_buffer &bits) noexcept;

} // namespace vela
