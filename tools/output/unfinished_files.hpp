// Files that must not stay behind when a signal ends the program.
#pragma once

#include <atomic>
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

/// A file that its destructor removes, or a signal, unless it has got another name by then. Any thread may make one;
/// best before the file is there, so that no signal comes in between. Where the path is too long or there are too many,
/// only the destructor removes it.
class unfinished_file {
  public:
    explicit unfinished_file(std::string path);
    ~unfinished_file();
    unfinished_file(const unfinished_file &) = delete;
    unfinished_file &operator=(const unfinished_file &) = delete;

    const std::string &path() const noexcept { return path_; }

  private:
    std::string path_;
    std::atomic<int> *listed_; ///< the state of its place in the list; null: it has none
};

} // namespace tools
