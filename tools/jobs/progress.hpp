// What a user at a terminal sees while an encode runs, and the line of statistics after it.
#pragma once

#include "common/terminal_line.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tools {

/// Hours only where there are some: 4:03.250 or 1:04:03.250, with as many decimals as asked for.
std::string clock_text(double seconds, int decimals);

/// Is told how far an encode is.
class progress_listener {
  public:
    virtual ~progress_listener() = default;

    /// @param samples  a channel, encoded so far
    virtual void update(std::uint64_t samples) = 0;
};

class progress final : public progress_listener {
  public:
    /// @param length   samples a channel, where known
    /// @param visible  false: no progress line
    progress(int rate, std::optional<std::uint64_t> length, bool visible);

    void update(std::uint64_t samples) override;

    /// Takes the line off the terminal, so that a message can follow.
    void clear() { shown_.erase(); }

    /// Seconds of audio encoded in a second.
    double speed() const;

  private:
    using clock = std::chrono::steady_clock;

    std::string line() const;

    double rate_;
    std::optional<std::uint64_t> length_;
    bool visible_;
    terminal_line shown_;
    std::uint64_t samples_ = 0;
    clock::time_point start_ = clock::now();
    clock::time_point next_draw_;
};

} // namespace tools
