// Writes finished frames to the stream's file and enters them in the list of time stamps.
#pragma once

#include "output/frame_buffer.hpp"
#include "output/output_file.hpp"
#include "output/timestamp_list.hpp"

#include <cstdint>

namespace tools {

class frame_writer {
  public:
    /// @param list  may be null
    frame_writer(output_file &file, timestamp_list *list) : file_(file), list_(list) {}

    /// Takes all frames out of the buffer. Returns whether the stream's file works.
    bool write(frame_buffer &from) noexcept;

    std::uint64_t frames() const noexcept { return frames_; }

  private:
    output_file &file_;
    timestamp_list *list_;
    std::uint64_t frames_ = 0;
    std::uint64_t bytes_ = 0;
};

} // namespace tools
