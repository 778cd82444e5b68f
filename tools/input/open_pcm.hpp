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
    bool asks_ffmpeg = false;                    ///< for what nobody here reads
    int stream = 1; ///< of the sound streams in the file; others than the first are for ffmpeg
};

/// @throws failure
std::unique_ptr<pcm_source> open_pcm(input_file input, const input_wishes &wishes);

/// WAV that another program writes to a pipe, to the pipe's end. Null: that is no WAV of 16 or 24 bits or
/// floats.
std::unique_ptr<pcm_source> open_streamed_wav(input_file pipe);

} // namespace tools
