// Writes finished frames to the stream's file and enters them in the list of time stamps.
#pragma once

#include "output/frame_buffer.hpp"
#include "output/output_file.hpp"
#include "output/timestamp_list.hpp"

#include <cstdint>

namespace tools {

class frame_writer {
  public:
    /// @param list    may be null
    /// @param offset  bytes of the file before the first frame
    frame_writer(output_file &file, timestamp_list *list, std::uint64_t offset)
        : file_(file), list_(list), offset_(offset), bytes_(offset) {}

    /// Takes all frames out of the buffer. Returns whether the stream's file works.
    bool write(frame_buffer &from);

    std::uint64_t frames() const noexcept { return frames_; }

    /// Of all frames.
    std::uint64_t bytes() const noexcept { return bytes_ - offset_; }

    /// Of the first frame in the file.
    std::uint64_t begin() const noexcept { return offset_; }

  private:
    output_file &file_;
    timestamp_list *list_;
    std::uint64_t frames_ = 0;
    std::uint64_t offset_;
    std::uint64_t bytes_; ///< in the file
};

} // namespace tools
