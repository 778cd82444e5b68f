// A stream in a WAV file: the chunks before it, and their sizes once it is complete.
#pragma once

#include "output/output_file.hpp"
#include "output/wave_header.hpp"

namespace tools {

class wave_container {
  public:
    /// @param labels  as wave_header() takes them
    wave_container(output_file &file, const mpeg_a_settings &settings, int rate,
                   std::vector<wav_chunk> labels)
        : file_(file), settings_(settings), rate_(rate), labels_(std::move(labels)) {}

    /// Writes the header. In a pipe its sizes stay open, as piped WAV has them.
    /// @return bytes before the stream
    std::uint64_t begin();

    /// What was measured while the stream was made; lost in a pipe.
    void set_loudness(const loudness_figures &figures) {
        write_loudness(labels_.front().contents, figures);
    }

    void finish(const wave_sizes &sizes);

  private:
    output_file &file_;
    const mpeg_a_settings &settings_;
    int rate_;
    std::vector<wav_chunk> labels_;
};

} // namespace tools
