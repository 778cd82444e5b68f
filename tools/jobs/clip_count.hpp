// How high the sound goes, and the samples that a decoder will have to clip.
#pragma once

#include "input/pcm_source.hpp"

namespace tools {

/// Only floats can lie beyond full scale.
struct clip_count {
    std::uint64_t samples = 0; ///< of all channels
    float peak = 0;            ///< the largest magnitude, full scale 1.0

    void add(std::span<const std::byte> pcm, sample_format format) noexcept;
    void add(const clip_count &other) noexcept;
};

/// What went through an encoder.
struct encoded_sound {
    std::uint64_t samples = 0; ///< a channel
    clip_count clipped;
};

} // namespace tools
