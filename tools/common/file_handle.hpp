// A file descriptor that closes itself.
#pragma once

#include <unistd.h>
#include <utility>

namespace tools {

class file_handle {
  public:
    file_handle() noexcept = default;
    explicit file_handle(int descriptor) noexcept : descriptor_(descriptor) {}
    file_handle(file_handle &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    file_handle &operator=(file_handle &&other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~file_handle() { close(); }

    int get() const noexcept { return descriptor_; }
    bool is_open() const noexcept { return descriptor_ >= 0; }

    /// Some file systems report a failed write only here. Returns 0, or -1 with errno.
    int close() noexcept { return is_open() ? ::close(std::exchange(descriptor_, -1)) : 0; }

  private:
    int descriptor_ = -1;
};

} // namespace tools
