// What a batch says while it runs and at its end.
#pragma once

#include "common/terminal_line.hpp"

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace tools {

/// Any thread may call it.
class batch_messages {
  public:
    explicit batch_messages(bool quiet);

    /// How often show() is worth calling: a terminal's line is drawn again, elsewhere it is a new one.
    std::chrono::milliseconds interval() const noexcept;
    void show(const std::string &line);

    /// Said at once, and again in the table at the end.
    void failed(const std::string &file, const std::string &why);

    /// Said at the end, once for all the files that it holds for.
    void noted(const std::string &file, const std::vector<std::string> &notes);

    void print_notes();
    void print_failures();
    void say(const std::string &text);

    std::size_t failures() const noexcept { return failures_.size(); }

  private:
    struct note {
        std::size_t files = 0;
        std::string first;
    };

    bool quiet_, terminal_;
    terminal_line line_;
    std::mutex mutex_;
    std::map<std::string, note> notes_;
    std::vector<std::pair<std::string, std::string>> failures_;
};

} // namespace tools
