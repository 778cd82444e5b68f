// The input of an encode: opened, fitted to the stream, and brought to the level that was asked for.
#pragma once

#include "input/pcm_source.hpp"
#include "jobs/metered_source.hpp"
#include "output/wave_container.hpp"
#include "velaenc/encode_file.hpp"
#include "velaenc/sound_plan.hpp"
#include "velaenc/stream_settings.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace tools {

/// An input, as the stream will have it.
struct prepared_input {
    struct stat status {};
    std::string name; ///< as messages call it
    std::unique_ptr<pcm_source> source;
    stream_plan plan;
    broadcast_origin origin;
    std::vector<wav_chunk> labels; ///< for a WAV file
    pcm_shape shape;               ///< of the input itself

    /// Whether its sound can be had a second time.
    bool reads_twice(const options &wanted) const noexcept {
        return S_ISREG(status.st_mode) && wanted.input != "-";
    }
};

/// @throws failure
prepared_input open_source(const options &wanted, const std::function<void(const std::string &)> &note);

/// The same, without a word.
prepared_input open_again(const options &wanted);

/// The input at the level that was asked for, and how loud that is.
struct levelled_input {
    prepared_input input;
    std::optional<programme_loudness> loudness;
    metered_source *meter = nullptr; ///< tells at the end, where the input can be read only once

    /// What was to be known of the sound is known when all of it was read.
    void finish(const sound_options &wanted) {
        if (meter != nullptr) loudness = reach_goal(meter->finish().figures(), wanted);
    }

    /// dB by which --loudness raises the sound.
    double gain_db() const noexcept { return loudness ? loudness->gain_db : 0; }
};

/// @param jobs  threads that measure, at most
/// @throws failure
levelled_input open_levelled(const options &wanted, run_listener &listener, int jobs);

} // namespace tools
