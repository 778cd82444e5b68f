// The original as floats, from any place on.
#pragma once

#include "input/pcm_source.hpp"

#include <memory>
#include <string>
#include <vector>

namespace tools {

class source_reader {
  public:
    /// @param channels  of the stream; one becomes two and two one as velaenc does it
    /// @throws failure
    source_reader(const std::string &path, int channels);

    int rate() const { return source_->shape().rate; }
    int channels() const { return source_->shape().channels; }

    /// Interleaved samples of one or two channels, full scale 1.0; silence before the start and after
    /// the end.
    /// @param first    position of the first instant; may be negative, never below the last one read
    /// @param instants how many
    std::vector<float> read(std::int64_t first, std::size_t instants);

  private:
    bool refill();

    std::unique_ptr<pcm_source> source_;
    std::vector<float> block_;
    std::int64_t block_first_ = 0; ///< position of the block's first instant
};

} // namespace tools
