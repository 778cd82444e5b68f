// Files that must not stay behind when a signal ends the program.
#pragma once

#include <csignal>
#include <string>

namespace tools {

/// From now on the signals that end a program remove the unfinished files first; those that the parent
/// ignores or blocks stay so. Writing to a closed pipe or beyond the limit of a file's size is an
/// ordinary error.
void catch_signals();

/// Keeps those signals from the calling thread and those that it starts: for threads that do not deal
/// with signals.
class signals_held {
  public:
    signals_held();
    ~signals_held();
    signals_held(const signals_held &) = delete;
    signals_held &operator=(const signals_held &) = delete;

  private:
    sigset_t before_;
};

/// Puts a file on the list; best before the file is there, so that no signal comes in between. Any
/// thread may. Returns its place, or -1 when the path is too long or the list is full.
int list_unfinished(const std::string &path) noexcept;

/// Takes it off again; -1 is ignored.
void forget_unfinished(int place) noexcept;

} // namespace tools
