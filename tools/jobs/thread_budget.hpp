// Threads that several encodes share.
#pragma once

#include <atomic>

namespace tools {

/// How many more threads may run. Whoever has become idle gives its thread back, and another encode
/// that has segments waiting starts one in its place.
class thread_budget {
  public:
    explicit thread_budget(int threads) : free_(threads) {}

    bool take() noexcept {
        int free = free_;
        while (free > 0)
            if (free_.compare_exchange_weak(free, free - 1)) return true;
        return false;
    }
    void give(int threads) noexcept { free_ += threads; }

  private:
    std::atomic<int> free_;
};

} // namespace tools
