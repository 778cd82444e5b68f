// A file of lines that several processes append to at the same time, on one machine or on several.
#pragma once

#include "common/file_handle.hpp"

#include <mutex>
#include <string>

namespace tools {

/// Lines stay whole: one lock and one write each. A line that a killed process left without its end
/// gets one, so that the next is a line of its own.
class shared_log {
  public:
    /// @throws failure
    explicit shared_log(const std::string &path);

    /// Any thread may call it.
    /// @param line  without its end
    /// @throws failure
    void append(std::string line);

  private:
    [[noreturn]] void cannot_write() const;

    std::string path_;
    file_handle handle_;
    std::mutex mutex_;
};

} // namespace tools
