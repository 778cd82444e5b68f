// Files that must not stay behind when a signal ends the program.
#pragma once

#include <string>

namespace tools {

/// From now on SIGINT, SIGTERM and SIGHUP remove the unfinished files before they end the program, and
/// writing to a closed pipe or beyond the limit of a file's size is an ordinary error.
void catch_signals();

/// Keeps those signals from the calling thread and those that it starts: while a file and its entry in
/// the list come into being together, and for threads that do not deal with files.
class signals_held {
  public:
    signals_held();
    ~signals_held();
    signals_held(const signals_held &) = delete;
    signals_held &operator=(const signals_held &) = delete;
};

/// Puts a file on the list. Returns its place, or -1 when the path is too long for it.
int list_unfinished(const std::string &path);

/// Takes it off again; -1 is ignored.
void forget_unfinished(int place) noexcept;

} // namespace tools
