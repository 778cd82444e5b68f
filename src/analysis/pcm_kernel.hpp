// From PCM bytes to floats on the scale of 16-bit integers, one array per channel. Plain loops without
// dependencies, which the compiler spreads over the level's lanes.
#pragma once

#include "analysis/kernels.hpp"

#include <bit>
#include <cstring>

namespace vela::VELA_LEVEL {

static_assert(std::endian::native == std::endian::little,
              "PCM is read as the processor's own integers");

// Each format: the bytes of a sample, its value, and the values of two consecutive ones.

struct pcm_s16 {
    static constexpr int width = 2;
    static float read(const std::uint8_t *p) noexcept {
        std::int16_t value;
        std::memcpy(&value, p, sizeof value);
        return static_cast<float>(value);
    }
    /// As one word: a load of every second sample has no lanes.
    static void read_pair(const std::uint8_t *p, float &first, float &second) noexcept {
        std::int32_t pair;
        std::memcpy(&pair, p, sizeof pair);
        first = static_cast<float>(static_cast<std::int16_t>(pair));
        second = static_cast<float>(pair >> 16);
    }
};

struct pcm_s24 {
    static constexpr int width = 3;
    static float read(const std::uint8_t *p) noexcept {
        const std::uint32_t bits =
            std::uint32_t{p[0]} << 8 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 24;
        return static_cast<float>(static_cast<std::int32_t>(bits)) * 0x1p-16F;
    }
    static void read_pair(const std::uint8_t *p, float &first, float &second) noexcept {
        first = read(p);
        second = read(p + width);
    }
};

struct pcm_f32 {
    static constexpr int width = 4;
    static float read(const std::uint8_t *p) noexcept {
        float value;
        std::memcpy(&value, p, sizeof value);
        return value * 32768.0F;
    }
    static void read_pair(const std::uint8_t *p, float &first, float &second) noexcept {
        first = read(p);
        second = read(p + width);
    }
};

template <class Format>
void convert(const std::uint8_t *pcm, int count, float *out) noexcept {
    for (int i = 0; i < count; ++i)
        out[i] = Format::read(pcm + Format::width * i);
}

template <class Format>
void convert_pairs(const std::uint8_t *pcm, int pairs, float *left, float *right) noexcept {
    for (int i = 0; i < pairs; ++i) {
        float first, second;
        Format::read_pair(pcm + 2 * Format::width * i, first, second);
        left[i] = first;
        right[i] = second;
    }
}

template <class Format>
inline constexpr pcm_kernels kernels_for{Format::width, convert<Format>, convert_pairs<Format>};

} // namespace vela::VELA_LEVEL
