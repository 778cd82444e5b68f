// PCM from whatever ffmpeg decodes: films, and formats that libsndfile does not read.
#pragma once

#include "common/child_process.hpp"
#include "input/input_file.hpp"
#include "input/source_filter.hpp"

namespace tools {

/// ffmpeg runs beside this program and gives the samples as floats in WAV, through a pipe.
class ffmpeg_source final : public source_filter {
  public:
    /// @param input   seekable
    /// @param stream  which one of its sound streams, from 1
    /// @throws std::system_error  ENOENT: there is no ffmpeg
    /// @throws failure when ffmpeg makes nothing of it
    static std::unique_ptr<ffmpeg_source> open(input_file input, int stream, length_rule rule);

    /// @throws failure also when ffmpeg fails or complains, unless the rule is not so strict
    std::span<const std::byte> next_block() override;

  private:
    struct decoder;

    ffmpeg_source(std::unique_ptr<decoder> from, std::unique_ptr<pcm_source> samples);

  public:
    ~ffmpeg_source() override;

  private:
    std::unique_ptr<decoder> decoder_;
};

} // namespace tools
