// An output that appears under its name only when it is complete.
#pragma once

#include "common/file_handle.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <sys/stat.h>

namespace tools {

/// A regular file is written under a temporary name beside its target; standard output, pipes and
/// devices are written directly. Unless published, the temporary file is removed by the destructor or
/// by a signal.
class output_file {
  public:
    /// @param path   "-" is standard output
    /// @param input  status of the input, which must not be the same file
    /// @throws failure
    output_file(const std::string &path, const struct stat &input);
    ~output_file();
    output_file(const output_file &) = delete;
    output_file &operator=(const output_file &) = delete;

    /// Final path, links resolved.
    const std::string &target() const noexcept { return target_; }

    /// Somebody may be waiting at the other end.
    bool is_direct() const noexcept { return temporary_.empty(); }

    /// Writes all bytes. Returns 0 or errno; after an error nothing is written any more.
    int write(std::span<const std::byte> bytes) noexcept;

    /// Reports the errors that come late, then gives the file its name. To publish several files
    /// together close all of them first.
    /// @throws failure
    void close();
    void publish();

    /// @throws failure when an earlier write failed
    void check() const;

  private:
    void open_direct();
    void open_temporary(const struct stat *replaced);
    [[noreturn]] void cannot_create(int error) const;

    std::string name_; ///< as messages call it
    std::string target_;
    std::string temporary_; ///< empty when direct
    file_handle handle_;
    int listed_ = -1;
    int error_ = 0;
};

} // namespace tools
