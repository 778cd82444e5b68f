#include "jobs/clip_count.hpp"

#include <algorithm>
#include <bit>
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
/// A width that is known and extremes of 16 bits let samples be compared in lanes.
template <std::size_t width>
void add_integers(clip_count &count, std::span<const std::byte> pcm) noexcept {
    std::int16_t lowest = 0, highest = 0;
    for (std::size_t i = width - 2; i < pcm.size(); i += width) {
        std::int16_t value;
        std::memcpy(&value, &pcm[i], sizeof value);
        lowest = std::min(lowest, value);
        highest = std::max(highest, value);
    }
    const int largest = std::max(-int{lowest}, int{highest});
    count.peak = std::max(count.peak, static_cast<float>(largest) * 0x1p-15f);
}

} // namespace

void clip_count::add(std::span<const std::byte> pcm, sample_format format) noexcept {
    if (format == sample_format::f32)
        add_floats(*this, pcm);
    else if (format == sample_format::s24)
        add_integers<3>(*this, pcm);
    else
        add_integers<2>(*this, pcm);
}

void clip_count::add(const clip_count &other) noexcept {
    samples += other.samples;
    peak = std::max(peak, other.peak);
}

} // namespace tools
