// What the command line says about the sound before it is encoded.
#pragma once

#include "input/channel_matrix.hpp"

#include <chrono>
#include <optional>
#include <vector>

namespace CLI {
class App;
}

namespace tools {

struct sound_options {
    std::chrono::nanoseconds start{0};
    std::optional<std::chrono::nanoseconds> duration;
    std::optional<int> rate; ///< Hz of the stream; none: the input's, or one near it that will do
    bool mixes_down = true;  ///< more than two channels
    std::vector<speaker_factor> downmix; ///< factors of one's own for that
    bool swaps_channels = false;
    double gain_db = 0;
    bool measures = false;          ///< how loud what is encoded is
    std::optional<double> loudness; ///< LUFS to bring it to, measured first
    double true_peak = -1;          ///< dBTP above which no gain for that brings it
    bool aligns = false;            ///< takes the decoder's delay out
    bool flushes_tail = false;      ///< lets the decoder's output have all of the input
};

void add_sound_options(CLI::App &app, sound_options &wanted);

} // namespace tools
