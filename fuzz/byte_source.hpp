// Decisions taken from a fuzzer's bytes; when they are used up, everything is zero.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

namespace fuzz {

class byte_source {
  public:
    explicit byte_source(std::span<const std::uint8_t> bytes) : left_(bytes) {}

    bool empty() const { return left_.empty(); }

    template <class Value>
    Value value() {
        Value out{};
        const auto bytes = take(sizeof out);
        std::memcpy(&out, bytes.data(), bytes.size());
        return out;
    }

    /// 0 .. n - 1, with n up to 65536
    template <class Number>
    Number below(Number n) {
        const int drawn = n > 256 ? value<std::uint16_t>() : value<std::uint8_t>();
        return static_cast<Number>(static_cast<Number>(drawn) % n);
    }

    /// A value of low .. high; of 32 times once any number at all.
    std::int32_t about(std::int32_t low, std::int32_t high) {
        const int byte = value<std::uint8_t>();
        return byte >= 248 ? value<std::int32_t>() : low + byte % (high - low + 1);
    }

    std::span<const std::uint8_t> take(std::size_t n) {
        const auto taken = left_.first(std::min(n, left_.size()));
        left_ = left_.subspan(taken.size());
        return taken;
    }

  private:
    std::span<const std::uint8_t> left_;
};

/// A fault ends the process, so that the fuzzer keeps the input.
inline void expect(bool condition, const char *what) {
    if (condition) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

} // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
