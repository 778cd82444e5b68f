// The values of PCM samples, as floats with full scale 1.0. A float holds every 24-bit integer.
#pragma once

#include "input/pcm_source.hpp"

#include <cstring>

namespace tools {

template <sample_format format>
float load_sample(const std::byte *at) noexcept {
    if constexpr (format == sample_format::f32) {
        float value;
        std::memcpy(&value, at, sizeof value);
        return value;
    } else if constexpr (format == sample_format::s24) {
        const auto bits = std::to_integer<std::uint32_t>(at[0]) << 8
                          | std::to_integer<std::uint32_t>(at[1]) << 16
                          | std::to_integer<std::uint32_t>(at[2]) << 24;
        return static_cast<float>(static_cast<std::int32_t>(bits)) * 0x1p-31f;
    } else {
        std::int16_t value;
        std::memcpy(&value, at, sizeof value);
        return static_cast<float>(value) * 0x1p-15f;
    }
}

template <sample_format format>
void load_samples(std::span<const std::byte> pcm, float *to) noexcept {
    constexpr auto width = static_cast<std::size_t>(format);
    for (std::size_t i = 0; i < pcm.size(); i += width)
        *to++ = load_sample<format>(&pcm[i]);
}

/// Makes `values` those of the samples.
inline void load_samples(std::span<const std::byte> pcm, sample_format format,
                         std::vector<float> &values) {
    values.resize(pcm.size() / static_cast<std::size_t>(format));
    switch (format) {
    case sample_format::s16:
        return load_samples<sample_format::s16>(pcm, values.data());
    case sample_format::s24:
        return load_samples<sample_format::s24>(pcm, values.data());
    case sample_format::f32:
        return load_samples<sample_format::f32>(pcm, values.data());
    }
}

} // namespace tools
