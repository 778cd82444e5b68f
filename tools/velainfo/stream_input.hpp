// The file that velainfo looks at: an elementary stream, or the one inside a WAV file.
#pragma once

#include "input/input_file.hpp"
#include "parser/frame_scanner.hpp"

#include <string>
#include <vector>

namespace tools {

class stream_input {
  public:
    /// @param path  "-" is standard input
    /// @throws failure when it cannot be read, or is a WAV file of something else
    explicit stream_input(const std::string &path);

    const std::string &name() const noexcept { return file_.name; }
    /// Where the stream begins in the file.
    std::uint64_t base() const noexcept { return base_; }
    bool in_wav() const noexcept { return base_ > 0; }

    /// Fills the front of `room`; returns the bytes read, 0 at the end.
    std::size_t read(std::span<std::uint8_t> room);

    /// What the file seems to be instead, for one without a frame; empty when nothing is known.
    std::string other_kind() const;

  private:
    void enter_wav();

    input_file file_;
    std::vector<std::byte> head_; ///< the first bytes
    std::size_t head_used_ = 0;
    std::uint64_t base_ = 0, left_ = ~std::uint64_t{};
};

} // namespace tools
