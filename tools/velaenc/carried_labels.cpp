#include "velaenc/carried_labels.hpp"

#include "common/counted.hpp"
#include "input/container.hpp"

#include <algorithm>

namespace tools {

std::vector<wav_chunk> labels_of(const input_file &input, std::vector<std::string> &notes) {
    auto found = read_wav_chunks(
        input, [](std::string_view name) { return name == "bext" || !is_technical(name); });
    std::vector<wav_chunk> labels{{"bext", {}}};
    for (auto &chunk : found) {
        if (chunk.name == "bext")
            labels.front() = std::move(chunk);
        else if (!is_label(chunk.name))
            notes.push_back("the chunk '" + chunk.name + "' is not carried into the WAV file");
        else if (!chunk.is_whole)
            notes.push_back("the chunk '" + chunk.name
                            + "' is cut off or beyond 16 MiB, and not carried");
        else
            labels.push_back(std::move(chunk));
    }
    return labels;
}

void fit_labels(std::vector<wav_chunk> &labels, const label_shift &shift,
                std::vector<std::string> &notes) {
    const std::size_t left_out = move_labels(labels, shift);
    if (left_out != 0)
        notes.push_back(counted(left_out, "cue point")
                        + " outside the sound, left out with their labels");
}

} // namespace tools
