// How the tool gives up: one exception type that carries the message and the exit code.
#pragma once

#include <stdexcept>
#include <string>

namespace tools {

/// Exit codes, as --help lists them. A run that a signal ends has the shell's 128 + signal.
enum class exit_code {
    success = 0,
    usage = 1,    ///< the command line makes no sense
    input = 2,    ///< input missing, unreadable, truncated, empty or of an unusable kind
    output = 3,   ///< output cannot be created or written
    rules = 4,    ///< settings that cannot be encoded, or that do not conform to the preset
    internal = 5, ///< memory out, or an error of the program itself
    batch = 6,    ///< some of several files failed
};

class failure : public std::runtime_error {
  public:
    failure(exit_code code, const std::string &message) : std::runtime_error(message), code_(code) {}
    exit_code code() const noexcept { return code_; }

  private:
    exit_code code_;
};

} // namespace tools
