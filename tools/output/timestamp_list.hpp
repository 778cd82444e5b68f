// The frames of the stream as a CSV file: number, byte offset, bytes, end and begin in 27 MHz ticks, and
// the begin as a PTS.
#pragma once

#include "output/output_file.hpp"

#include <cstdint>
#include <string>

namespace tools {

class timestamp_list {
  public:
    /// @param begin  of the first frame, in 27 MHz ticks
    timestamp_list(output_file &file, std::int64_t begin);

    void add(std::uint64_t frame, std::uint64_t offset, std::uint32_t bytes, std::int64_t stamp);

    /// Writes the rows so far. Errors stay with the file.
    void flush() noexcept;

  private:
    output_file &file_;
    std::int64_t begin_; ///< of the next frame
    std::string text_;   ///< not written yet
};

/// Whether a file is such a list.
inline bool is_timestamp_list(const file_view &file) {
    return begins_with(file, "frame,byte_offset,bytes,");
}

} // namespace tools
