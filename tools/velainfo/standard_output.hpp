// What is printed, and whether it arrives.
#pragma once

#include <string>
#include <string_view>

namespace tools {

/// Standard output, gathered into large pieces.
class standard_output {
  public:
    /// @throws failure when it cannot be written; without a message when nobody reads on
    void print(std::string_view text);
    void flush();

  private:
    std::string waiting_;
};

} // namespace tools
