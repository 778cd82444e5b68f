// Another program, started without a shell.
#pragma once

#include "common/file_handle.hpp"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace tools {

/// Its standard input is empty, its standard output comes through a pipe, and what it says on standard
/// error is kept. Signals of the terminal do not reach it: it ends when nobody reads any more.
class child_process {
  public:
    /// The name of the file that is handed over, as the program can open it.
    static constexpr const char *handed_file = "/proc/self/fd/3";

    /// @param words  the program, which is looked for on PATH, and its arguments as they are
    /// @param file   an open descriptor, whose file is handed over; -1: none
    /// @throws std::system_error  ENOENT: there is no such program
    explicit child_process(std::span<const std::string> words, int file = -1);

    /// Ends the program where it still runs.
    ~child_process();
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    /// Its standard output, once.
    file_handle take_output() noexcept { return std::move(output_); }

    /// Waits until it has ended; reading has to be over by then.
    /// @return its exit status, 128 and the signal's number where a signal ended it
    int wait() noexcept;

    /// The last line that it has said on standard error, without what cannot be printed.
    /// @param beside  a line that does not count
    std::string last_words(std::string_view beside = "") const;

  private:
    file_handle output_, errors_;
    pid_t id_;
    std::optional<int> status_; ///< when it has been waited for
};

} // namespace tools
