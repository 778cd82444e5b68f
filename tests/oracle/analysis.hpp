// The analysis filterbank of ISO/IEC 11172-3 as its flow chart has it.
#pragma once

#include <array>

namespace oracle {

using subbands = std::array<double, 32>;

/// C.1.3, windowing and matrixing. `newest` is the latest sample on the 16-bit scale; 511 more precede
/// it. The window is the encoder's own table, which other tests check.
subbands analyze(const float *newest);

} // namespace oracle
