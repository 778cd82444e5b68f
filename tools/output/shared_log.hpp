// A file of lines that several processes append to at the same time, on one machine or on several.
#pragma once

#include "common/file_handle.hpp"

#include <mutex>
#include <string>
#include <string_view>

namespace tools {

/// Lines stay whole: one lock and one write each. A line that a killed process left without its end
/// gets one, so that the next is a line of its own.
class shared_log {
  public:
    /// @param path  "-" is standard output
    /// @param mark  what every log of this kind begins with; no other file is added to
    /// @throws failure
    shared_log(const std::string &path, std::string_view mark);

    /// Any thread may call it.
    /// @param line  without its end
    /// @throws failure
    void append(std::string line);

  private:
    [[noreturn]] void cannot_write() const;
    void check_kind(std::string_view mark) const;

    std::string name_; ///< as messages call it
    file_handle handle_;
    bool is_file_; ///< a regular one, which others may be writing to
    std::mutex mutex_;
};

} // namespace tools
