// The file that velainfo looks at: an elementary stream, or the one inside a WAV file.
#pragma once

#include "common/child_process.hpp"
#include "common/live_input.hpp"
#include "input/input_file.hpp"
#include "velainfo/container_tracks.hpp"
#include "velainfo/stream_report.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tools {

class stream_input {
  public:
    /// @throws failure when it cannot be read, or is a file of something else
    explicit stream_input(const stream_name &stream);

    const std::string &name() const noexcept { return file_.name; }
    const container_facts &container() const noexcept { return container_; }

    /// Whether it comes through a pipe on standard input, where Ctrl-C ends it instead of the program.
    bool is_live() const noexcept { return live_.has_value(); }
    bool was_interrupted() const noexcept { return live_ && live_->has_ended(); }
    /// For a live input: is called several times a second while nothing comes.
    void while_waiting(std::function<void()> tick) { tick_ = std::move(tick); }

    /// Fills the front of `room`; returns the bytes read, 0 at the end.
    std::size_t read(std::span<std::uint8_t> room);

    /// What the file seems to be instead, for one without a frame; empty when nothing is known.
    std::string other_kind() const;

  private:
    void read_head();
    void enter_wav();
    void start_copying(int track);
    std::size_t read_copy(std::span<std::byte> room);
    std::size_t read_now(std::span<std::byte> room);

    input_file file_;
    std::optional<live_input> live_;
    std::function<void()> tick_;
    std::vector<std::byte> head_; ///< the first bytes
    std::size_t head_used_ = 0;
    container_facts container_{};
    bool in_wav_ = false;
    std::unique_ptr<child_process> ffmpeg_; ///< that takes the stream out of its container
    std::uint64_t left_ = ~std::uint64_t{};
};

} // namespace tools
