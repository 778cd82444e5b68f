// What a WAV file says about its sound beside the format: carried from the input's chunks to the stream's.
#pragma once

#include "common/wav_chunk.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace tools {

/// Whether a chunk of that name tells something that still holds for the encoded sound: AES46's `cart`,
/// `iXML`, `axml`, `cue ` and `LIST`, which has texts and the labels of cue points.
bool is_label(std::string_view name) noexcept;

/// Whether a chunk of that name describes the samples or the file itself, so that the stream has one of its
/// own or needs none.
bool is_technical(std::string_view name) noexcept;

/// Where the encoded sound lies in the input.
struct label_shift {
    std::uint64_t start;                ///< samples of the input before it
    std::optional<std::uint64_t> count; ///< samples of the stream
    int from, to;                       ///< Hz of the input and of the stream
};

/// Moves the positions in `cue ` and its labels' lengths, and the timers of `cart`. Cue points outside
/// the sound are left out together with their labels.
/// @return how many of them
std::size_t move_labels(std::vector<wav_chunk> &labels, const label_shift &shift);

} // namespace tools
