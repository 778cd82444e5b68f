// What a stream sounds like, from the samples that a decoder makes of it.
#pragma once

#include "loudness/loudness_record.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace tools {

struct silent_stretch {
    double begin = 0, seconds = 0;
};

struct sound_report {
    static constexpr double silence_level = -60; ///< dB of full scale; below it a sample is silent
    static constexpr double silence_seconds = 1; ///< shorter stretches are not listed
    static constexpr std::size_t listed_stretches = 100;

    loudness_figures loudness;
    std::vector<float> momentary; ///< LUFS of the 400 ms up to each step
    double step_seconds = 0.01;
    std::vector<silent_stretch> silence;                   ///< of all channels together, the first ones
    double longest_silence = 0, longest_silence_begin = 0; ///< seconds
    int channels = 0;
    std::array<double, 2> peak{}, rms{}; ///< dB of full scale, -120 for silence
    std::array<bool, 2> is_dead{};       ///< a channel never above the silence's level
    /// Of both channels over everything, -1 (out of phase) to 1 (mono); none with one, or with a silent one.
    std::optional<double> correlation;
    std::uint64_t clipped = 0; ///< samples that exceed full scale, of all channels
};

} // namespace tools
