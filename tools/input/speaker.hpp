// Where the channels of an input belong.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace tools {

/// In the order of the bits of a channel mask.
enum class speaker : std::uint8_t {
    front_left,
    front_right,
    front_center,
    low_frequency,
    back_left,
    back_right,
    front_left_of_center,
    front_right_of_center,
    back_center,
    side_left,
    side_right,
    top_center,
    top_front_left,
    top_front_center,
    top_front_right,
    top_back_left,
    top_back_center,
    top_back_right,
    other,
};

/// As the field abbreviates them: FL, FR, FC, LFE, ...
std::string_view name_of(speaker where) noexcept;

/// The other way round, whatever the case; none for what is no such name.
std::optional<speaker> speaker_named(std::string_view name);

/// The order of WAV and FLAC for that many channels; empty above 8.
std::vector<speaker> wav_speakers(int channels);

/// The order of Vorbis and of Opus' mapping family 1 for that many channels; empty above 8.
std::vector<speaker> vorbis_speakers(int channels);

/// A channel mask of WAVE_FORMAT_EXTENSIBLE; empty where it does not name that many speakers.
std::vector<speaker> masked_speakers(std::uint32_t mask, int channels);

} // namespace tools
