// A stream in a WAV file: the chunks before it, and their sizes once it is complete.
#pragma once

#include "output/output_file.hpp"
#include "output/wave_header.hpp"

namespace tools {

class wave_container {
  public:
    /// Writes the header. In a pipe its sizes stay open, as piped WAV has them.
    /// @param labels  as wave_header() takes them
    wave_container(output_file &file, const mpeg_a_settings &settings, int kbps, int rate,
                   std::vector<wav_chunk> labels);

    /// Bytes before the stream.
    std::uint64_t stream_offset() const noexcept { return stream_offset_; }

    /// What was measured while the stream was made; lost in a pipe.
    void set_loudness(const loudness_figures &figures) {
        write_loudness(labels_.front().contents, figures);
    }

    void finish(const wave_sizes &sizes);

  private:
    output_file &file_;
    const mpeg_a_settings &settings_;
    int kbps_, rate_;
    std::vector<wav_chunk> labels_;
    std::uint64_t stream_offset_ = 0;
};

} // namespace tools
