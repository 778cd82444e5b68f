// The frames of the stream as a CSV file: number, byte offset, bytes, 27 MHz time stamp.
#pragma once

#include "output/output_file.hpp"

#include <cstdint>
#include <string>

namespace tools {

class timestamp_list {
  public:
    explicit timestamp_list(output_file &file);

    /// Never throws: it is called from the encoder. Errors stay with the file.
    void add(std::uint64_t frame, std::uint64_t offset, std::uint32_t bytes,
             std::int64_t stamp) noexcept;
    void flush() noexcept;

  private:
    output_file &file_;
    std::string text_; ///< never grows beyond what was reserved
};

} // namespace tools
