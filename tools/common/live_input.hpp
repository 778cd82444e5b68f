// An input that ends when the user says so: a recording whose length nobody promised.
#pragma once

#include "common/file_handle.hpp"

namespace tools {

/// While one is alive the first SIGINT or SIGTERM ends the input instead of the program. The next one
/// has its ordinary effect. There is one at a time; others just wait.
class live_input {
  public:
    live_input();
    ~live_input();
    live_input(const live_input &) = delete;
    live_input &operator=(const live_input &) = delete;

    bool has_ended() const noexcept;

    /// Waits until the descriptor has something to read or is at its end. Returns false when the signal
    /// has come.
    bool wait_for(int descriptor) const noexcept;

    enum class outcome { readable, ended, nothing };
    /// The same for at most so many milliseconds.
    outcome wait_for(int descriptor, int most) const noexcept;

  private:
    file_handle event_; ///< readable when the signal has come
};

/// For the handler of signals. Returns false where the signal has its ordinary effect.
bool end_live_input(int signal) noexcept;

} // namespace tools
