// Constant tables and other arrays of a fixed length.
#pragma once

namespace vela {

/// N values, indexed with int as everything here is. Its functions are inlined always, unoptimised builds
/// included: kernel files may use it (see CONTRIBUTING.md on kernels), as they may not use std::array.
template <class T, int N>
struct table {
    T values[N];

    [[gnu::always_inline]] constexpr T &operator[](int i) noexcept { return values[i]; }
    [[gnu::always_inline]] constexpr const T &operator[](int i) const noexcept { return values[i]; }

    [[gnu::always_inline]] constexpr T *begin() noexcept { return values; }
    [[gnu::always_inline]] constexpr T *end() noexcept { return values + N; }
    [[gnu::always_inline]] constexpr const T *begin() const noexcept { return values; }
    [[gnu::always_inline]] constexpr const T *end() const noexcept { return values + N; }
};

} // namespace vela
