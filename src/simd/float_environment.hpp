// The floating-point environment that the encoder computes in.
#pragma once

#include <xmmintrin.h>

namespace vela {

/// While one lives, its thread rounds to nearest, keeps subnormal numbers and raises no exception; then
/// the host's own environment is back, flags included. Hosts set others (flush-to-zero in audio
/// threads, traps in debug builds), and neither the output bytes nor a division whose result no lane
/// selects may depend on them.
class float_environment {
  public:
    float_environment() noexcept { _mm_setcsr(default_environment); }
    ~float_environment() { _mm_setcsr(host_); }
    float_environment(const float_environment &) = delete;
    float_environment &operator=(const float_environment &) = delete;

  private:
    static constexpr unsigned default_environment = 0x1F80; ///< MXCSR as a process starts with

    unsigned host_ = _mm_getcsr();
};

} // namespace vela
