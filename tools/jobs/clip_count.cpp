#include "jobs/clip_count.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

namespace tools {

void clip_count::add(std::span<const std::byte> pcm, sample_format format) noexcept {
    if (format != sample_format::f32) return;
    // Magnitudes of floats are ordered as their bits are, and integers can be compared in lanes.
    constexpr auto full_scale = std::bit_cast<std::int32_t>(1.0f);
    std::int32_t beyond = 0, largest = 0;
    for (std::size_t i = 0; i < pcm.size(); i += sizeof(float)) {
        std::int32_t bits;
        std::memcpy(&bits, &pcm[i], sizeof bits);
        bits &= 0x7FFFFFFF;
        beyond += bits > full_scale ? 1 : 0;
        largest = std::max(largest, bits);
    }
    samples += static_cast<std::uint64_t>(beyond);
    peak = std::bit_cast<float>(std::max(largest, std::bit_cast<std::int32_t>(peak)));
}

void clip_count::add(const clip_count &other) noexcept {
    samples += other.samples;
    peak = std::max(peak, other.peak);
}

} // namespace tools
