// What velaenc --trace wrote, beside the stream that it was written for.
#pragma once

#include "parser/frame_parser.hpp"

#include <array>
#include <fstream>
#include <string>

namespace tools {

/// Decibels by [channel][subband] one after the other, smr, threshold and mnr, then bits left over;
/// not-a-number where there is nothing.
using trace_values = std::array<float, 3 * 64 + 1>;

class trace_reader {
  public:
    /// @throws failure
    explicit trace_reader(const std::string &path);

    /// The line of the next frame.
    /// @throws failure when there is none, or when it is about another frame than this one
    trace_values next(const parsed_frame &frame);

    /// @throws failure when there are more lines than frames
    void finish();

  private:
    [[noreturn]] void refuse(const std::string &why) const;

    std::string path_;
    std::ifstream file_;
    std::uint64_t lines_ = 0;
};

} // namespace tools
