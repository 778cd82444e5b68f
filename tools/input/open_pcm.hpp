// Chooses the reader for an input.
#pragma once

#include "input/input_file.hpp"
#include "input/pcm_source.hpp"
#include "input/raw_format.hpp"

#include <memory>
#include <optional>

namespace tools {

/// How the user wants an input to be read.
struct input_wishes {
    std::optional<raw_shape> raw = std::nullopt; ///< shape of headerless PCM; none for an audio file
    bool ignore_length = false;                  ///< encode what is there, whatever its header says
    note_function on_note = nullptr;             ///< called while opening, and at the end of the input
};

/// @throws failure
std::unique_ptr<pcm_source> open_pcm(input_file input, const input_wishes &wishes);

} // namespace tools
