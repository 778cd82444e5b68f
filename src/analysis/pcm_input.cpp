#include "analysis/pcm_input.hpp"

#include "stream/rate_tables.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace vela {

namespace {

// Each format: the bytes of one sample and its value on the 16-bit scale.

struct s16 {
    static constexpr std::size_t width = 2;
    static float read(const std::uint8_t *p) noexcept {
        std::int16_t value;
        std::memcpy(&value, p, sizeof value);
        return static_cast<float>(value);
    }
};

struct s24 {
    static constexpr std::size_t width = 3;
    static float read(const std::uint8_t *p) noexcept {
        const std::uint32_t bits =
            std::uint32_t{p[0]} << 8 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 24;
        return static_cast<float>(static_cast<std::int32_t>(bits)) * 0x1p-16F;
    }
};

struct f32 {
    static constexpr std::size_t width = 4;
    static float read(const std::uint8_t *p) noexcept {
        float value;
        std::memcpy(&value, p, sizeof value);
        return value * 32768.0F;
    }
};

} // namespace

void pcm_input::init(int sampling_bits, int channels, int layer) noexcept {
    *this = {};
    sampling_bits_ = sampling_bits;
    channels_ = channels;
    frame_samples_ = samples_per_frame(layer);
    newest_ = layer == 1 ? frame_start_position + 64 : frame_start_position;
}

bool pcm_input::fill_frame(std::span<const std::uint8_t> &pcm, bool flush) noexcept {
    if (flush) {
        if (gathered_ == 0) return false;
        pad();
    } else if (sampling_bits_ == 24) {
        take<s24>(pcm);
    } else if (sampling_bits_ == 32) {
        take<f32>(pcm);
    } else {
        take<s16>(pcm);
    }
    if (gathered_ < frame_samples_ * channels_) return false;
    gathered_ = 0;
    return true;
}

template <class Format>
void pcm_input::take(std::span<const std::uint8_t> &pcm) noexcept {
    const int wanted = frame_samples_ * channels_ - gathered_;
    const int count = static_cast<int>(
        std::min<std::size_t>(pcm.size() / Format::width, static_cast<std::size_t>(wanted)));
    if (count > 0 && gathered_ == 0) make_room();
    const std::uint8_t *const p = pcm.data();
    const auto value = [p](int i) {
        return Format::read(p + static_cast<std::size_t>(i) * Format::width);
    };
    float *const first = buffer_[0] + newest_;
    float *const second = buffer_[1] + newest_;
    if (channels_ == 1) {
        for (int i = 0; i < count; ++i)
            first[gathered_ + i] = value(i);
    } else {
        // A block may start with the second channel of a pair and end with the first one of another.
        int i = 0;
        if (count > 0 && gathered_ % 2 == 1) second[gathered_ / 2] = value(i++);
        float *const left = first + (gathered_ + i) / 2, *const right = second + (gathered_ + i) / 2;
        const int pairs = (count - i) / 2;
        for (int k = 0; k < pairs; ++k) {
            left[k] = value(i + 2 * k);
            right[k] = value(i + 2 * k + 1);
        }
        if (i + 2 * pairs < count) left[pairs] = value(count - 1);
    }
    gathered_ += count;
    // What is left of the block is either the start of the next frame or a cut sample.
    const auto used = static_cast<std::size_t>(count) * Format::width;
    pcm = count < wanted ? std::span<const std::uint8_t>{} : pcm.subspan(used);
}

void pcm_input::make_room() noexcept {
    for (int c = 0; c < channels_; ++c) {
        std::memmove(buffer_[c], buffer_[c] + frame_samples_,
                     static_cast<std::size_t>(newest_) * sizeof(float));
    }
}

void pcm_input::pad() noexcept {
    for (int c = 0; c < channels_; ++c) {
        float *const newest = buffer_[c] + newest_;
        const int present = (gathered_ + channels_ - 1 - c) / channels_;
        std::fill(newest + present, newest + frame_samples_, 0.0F);
    }
    gathered_ = frame_samples_ * channels_;
}

} // namespace vela
