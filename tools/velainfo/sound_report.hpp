// What a stream sounds like, from the samples that a decoder makes of it.
#pragma once

#include "loudness/loudness_record.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace tools {

struct silent_stretch {
    double begin, seconds;
};

/// Of no sound all is 0 and empty.
struct sound_report {
    static constexpr double silence_level = -60; ///< dB of full scale; below it a sample is silent
    static constexpr double silence_seconds = 1; ///< shorter stretches are not listed
    static constexpr std::size_t listed_stretches = 100;

    loudness_figures loudness;
    std::vector<float> momentary; ///< LUFS of the 400 ms up to each step
    double step_seconds;
    std::vector<silent_stretch> silence;           ///< of all channels together, the first ones
    double longest_silence, longest_silence_begin; ///< seconds
    int channels;
    std::array<double, 2> peak, rms; ///< dB of full scale, -120 for silence
    std::array<bool, 2> is_dead;     ///< a channel never above the silence's level
    /// Of both channels over everything, -1 (out of phase) to 1 (mono); none with one, or with a silent one.
    std::optional<double> correlation;
    std::uint64_t clipped; ///< samples that exceed full scale, of all channels
};

} // namespace tools
