#include "jobs/clip_count.hpp"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

namespace tools {

namespace {

/// Magnitudes of floats are ordered as their bits are, and integers can be compared in lanes.
void add_floats(clip_count &count, std::span<const std::byte> pcm) noexcept {
    constexpr auto full_scale = std::bit_cast<std::int32_t>(1.0f);
    std::int32_t beyond = 0, largest = 0;
    for (std::size_t i = 0; i < pcm.size(); i += sizeof(float)) {
        std::int32_t bits;
        std::memcpy(&bits, &pcm[i], sizeof bits);
        bits &= 0x7FFFFFFF;
        beyond += bits > full_scale ? 1 : 0;
        largest = std::max(largest, bits);
    }
    count.samples += static_cast<std::uint64_t>(beyond);
    count.peak = std::max(count.peak, std::bit_cast<float>(largest));
}

/// The upper 16 bits of each sample, which tell its magnitude to a thousandth of a decibel where it matters.
void add_integers(clip_count &count, std::span<const std::byte> pcm, std::size_t width) noexcept {
    std::int32_t largest = 0;
    for (std::size_t i = width - 2; i < pcm.size(); i += width) {
        std::int16_t value;
        std::memcpy(&value, &pcm[i], sizeof value);
        largest = std::max(largest, std::abs(static_cast<std::int32_t>(value)));
    }
    count.peak = std::max(count.peak, static_cast<float>(largest) * 0x1p-15f);
}

} // namespace

void clip_count::add(std::span<const std::byte> pcm, sample_format format) noexcept {
    if (format == sample_format::f32)
        add_floats(*this, pcm);
    else
        add_integers(*this, pcm, static_cast<std::size_t>(format));
}

void clip_count::add(const clip_count &other) noexcept {
    samples += other.samples;
    peak = std::max(peak, other.peak);
}

} // namespace tools
