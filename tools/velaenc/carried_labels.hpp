// The labels of a Broadcast WAV file that is made from another one.
#pragma once

#include "input/input_file.hpp"
#include "output/wave_labels.hpp"

#include <string>
#include <vector>

namespace tools {

/// What the input's chunks say about its sound; `bext` comes first, without contents where there is none.
/// @param notes  gets the names of chunks that cannot be carried
std::vector<wav_chunk> labels_of(const input_file &input, std::vector<std::string> &notes);

/// Has them tell the same of the encoded sound.
/// @param notes  gets what had to be left out
void fit_labels(std::vector<wav_chunk> &labels, const label_shift &shift,
                std::vector<std::string> &notes);

} // namespace tools
