// Scale factor indexes and the Layer II scale factor selection.
#pragma once

#include "coding/frame.hpp"

#include <cstdint>

namespace vela {

/// Index of the smallest scale factor not below `magnitude` (ISO/IEC 11172-3, C.1.5.1.4): 62 for
/// silence, 0 also for magnitudes above 2.0.
int scalefactor_index(double magnitude) noexcept;

/// Indexes of one part of a channel, all 32 subbands.
void compute_scalefactors(const coding_kernels &kernels, const part_samples &samples,
                          std::uint8_t (&index)[32]) noexcept;

/// Chooses how many of a subband's three scale factors are sent (ISO/IEC 11172-3, C.1.5.2.5) and sets
/// the indexes to what a decoder will use.
/// @return scfsi: 0 all three, 1 the first two parts share one, 2 all share one, 3 the last two share one
int choose_scfsi(std::uint8_t &first, std::uint8_t &second, std::uint8_t &third) noexcept;

/// Layer II: choose_scfsi over every channel and subband below sblimit.
void choose_scfsi(const coder_config &config, side_info &side) noexcept;

} // namespace vela
