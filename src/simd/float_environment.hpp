// The floating-point environment that the encoder computes in.
#pragma once

#include "simd/exact_arithmetic.hpp"

#include <cstdint>

#if defined(__x86_64__)
#include <xmmintrin.h>
#elif !defined(__aarch64__)
#include <cfenv>
#endif

namespace vela {

// The registers that hold it, and what a process starts with.
#if defined(__x86_64__)
/// MXCSR and the x87 control word. Nothing here computes on the x87, but the C library rounds the numbers
/// that it reads from text as that one says.
struct float_registers {
    unsigned sse = 0x1F80;
    std::uint16_t x87 = 0x037F;

    static float_registers read() noexcept {
        float_registers now{_mm_getcsr()};
        __asm__ volatile("fnstcw %0" : "=m"(now.x87));
        return now;
    }
    void write() const noexcept {
        _mm_setcsr(sse);
        __asm__ volatile("fldcw %0" : : "m"(x87));
    }
};
#elif defined(__aarch64__)
/// FPCR and FPSR.
struct float_registers {
    std::uint64_t control = 0, status = 0;

    static float_registers read() noexcept {
        float_registers now;
        __asm__ volatile("mrs %0, fpcr\n\tmrs %1, fpsr"
                         : "=r"(now.control), "=r"(now.status)
                         :
                         : "memory");
        return now;
    }
    void write() const noexcept {
        __asm__ volatile("msr fpcr, %0\n\tmsr fpsr, %1" : : "r"(control), "r"(status) : "memory");
    }
};
#else
struct float_registers {
    std::fenv_t all = *FE_DFL_ENV;

    static float_registers read() noexcept {
        float_registers now;
        std::fegetenv(&now.all);
        return now;
    }
    void write() const noexcept { std::fesetenv(&all); }
};
#endif

/// While one lives, its thread rounds to nearest, keeps subnormal numbers and raises no exception; then
/// the host's own environment is back, flags included. Hosts set others (flush-to-zero in audio
/// threads, traps in debug builds), and neither the output bytes nor a division whose result no lane
/// selects may depend on them.
class float_environment {
  public:
    float_environment() noexcept { renew(); }
    ~float_environment() { host_.write(); }
    float_environment(const float_environment &) = delete;
    float_environment &operator=(const float_environment &) = delete;

    /// Takes the encoder's environment anew; to be called while one lives, after every function of the
    /// host's, which may leave another one behind.
    static void renew() noexcept { float_registers{}.write(); }

  private:
    float_registers host_ = float_registers::read();
};

} // namespace vela
