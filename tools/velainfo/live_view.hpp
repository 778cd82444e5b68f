// What a user at a terminal sees while a stream comes in that does not end.
#pragma once

#include "common/terminal_line.hpp"
#include "velainfo/stream_report.hpp"
#include "velainfo/synthesis.hpp"

#include <chrono>

namespace tools {

class live_view {
  public:
    /// The next frame, with its sample codes.
    void add(const parsed_frame &frame, const sample_codes &codes);

    /// Draws the line anew once a second.
    void update(const stream_report &so_far);

  private:
    using clock = std::chrono::steady_clock;

    std::string line(const stream_report &so_far) const;

    terminal_line shown_;
    clock::time_point next_draw_ = clock::now() + std::chrono::seconds(1), last_frame_ = clock::now();
    parsed_frame last_{};
    frame_subbands subbands_ = {};
    double energy_[2] = {}; ///< since the line was drawn
    int steps_ = 0;
};

} // namespace tools
