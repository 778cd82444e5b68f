// Where a container file says its sound data lies. libsndfile quietly shortens a file that lacks the
// end of its data and cannot read WAV-like files from every pipe, so the tool looks for itself.
#pragma once

#include "input/input_file.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

namespace tools {

/// Reads at an offset from the start of the file; returns fewer bytes when the file ends there.
using fetch_function = std::function<std::size_t(std::uint64_t offset, std::span<std::byte> room)>;

struct chunk {
    std::uint64_t offset = 0;                          ///< of the first byte of the payload
    std::optional<std::uint64_t> bytes = std::nullopt; ///< none where the writer could not know it
};

/// Finds the first chunk of that name ("fmt ", "data") in a RIFF or RF64 file.
std::optional<chunk> find_wav_chunk(const fetch_function &fetch, std::string_view name);

/// Finds the sound data of RIFF, RF64, W64, AIFF, CAF and AU files; none for other files.
std::optional<chunk> find_sound_data(const fetch_function &fetch);

/// @param input  seekable; must outlive the result
fetch_function fetch_from(const input_file &input);

/// @param input  seekable
/// @throws failure when the file ends before the end of its sound data
void check_complete(const input_file &input);

} // namespace tools
