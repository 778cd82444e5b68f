// A line on standard error that is drawn again and again.
#pragma once

#include <cstddef>
#include <string>

namespace tools {

class terminal_line {
  public:
    terminal_line() = default;

    /// Takes the line away, so that a message can follow.
    ~terminal_line() { erase(); }
    terminal_line(const terminal_line &) = delete;
    terminal_line &operator=(const terminal_line &) = delete;

    /// Draws the text in place of the one before, cut to the terminal's width.
    void show(std::string text);
    void erase();

  private:
    std::size_t drawn_ = 0; ///< columns
};

} // namespace tools
