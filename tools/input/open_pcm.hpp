// Chooses the reader for an input.
#pragma once

#include "input/input_file.hpp"
#include "input/pcm_source.hpp"

#include <memory>
#include <optional>

namespace tools {

/// @param raw  the shape of headerless PCM; none for an audio file
/// @throws failure
std::unique_ptr<pcm_source> open_pcm(input_file input, const std::optional<pcm_shape> &raw);

} // namespace tools
