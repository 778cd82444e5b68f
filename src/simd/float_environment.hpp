// The floating-point environment that the encoder computes in.
#pragma once

#include "simd/exact_arithmetic.hpp"

#include <cstdint>
#include <xmmintrin.h>

namespace vela {

/// While one lives, its thread rounds to nearest, keeps subnormal numbers and raises no exception; then
/// the host's own environment is back, flags included. Hosts set others (flush-to-zero in audio
/// threads, traps in debug builds), and neither the output bytes nor a division whose result no lane
/// selects may depend on them.
class float_environment {
  public:
    float_environment() noexcept {
        __asm__ volatile("fnstcw %0" : "=m"(host_control_));
        renew();
    }
    ~float_environment() { set(host_, host_control_); }
    float_environment(const float_environment &) = delete;
    float_environment &operator=(const float_environment &) = delete;

    /// Takes the encoder's environment anew; to be called while one lives, after every function of the
    /// host's, which may leave another one behind.
    static void renew() noexcept { set(default_environment, default_control); }

  private:
    // MXCSR and the x87 control word as a process starts with them. Nothing here computes on the x87, but
    // the C library rounds the numbers that it reads from text as that one says.
    static constexpr unsigned default_environment = 0x1F80;
    static constexpr std::uint16_t default_control = 0x037F;

    static void set(unsigned environment, std::uint16_t control) noexcept {
        _mm_setcsr(environment);
        __asm__ volatile("fldcw %0" : : "m"(control));
    }

    unsigned host_ = _mm_getcsr();
    std::uint16_t host_control_;
};

} // namespace vela
