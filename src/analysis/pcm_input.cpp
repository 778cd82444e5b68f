#include "analysis/pcm_input.hpp"

#include "stream/rate_tables.hpp"

#include <algorithm>
#include <cstring>

namespace vela {

void pcm_input::init(const analysis_kernels &kernels, int sampling_bits, int channels,
                     int layer) noexcept {
    *this = {};
    format_ = sampling_bits == 24 ? &kernels.s24 : sampling_bits == 32 ? &kernels.f32 : &kernels.s16;
    channels_ = channels;
    frame_samples_ = samples_per_frame(layer);
    newest_ = layer == 1 ? frame_start_position + 64 : frame_start_position;
}

bool pcm_input::fill_frame(std::span<const std::uint8_t> &pcm, bool flush) noexcept {
    if (flush) {
        if (gathered_ == 0) return false;
        pad();
    } else {
        take(pcm);
    }
    if (gathered_ < frame_samples_ * channels_) return false;
    gathered_ = 0;
    return true;
}

void pcm_input::take(std::span<const std::uint8_t> &pcm) noexcept {
    const auto width = static_cast<std::size_t>(format_->width);
    const int wanted = frame_samples_ * channels_ - gathered_;
    const int count =
        static_cast<int>(std::min<std::size_t>(pcm.size() / width, static_cast<std::size_t>(wanted)));
    if (count > 0 && gathered_ == 0) make_room();
    const auto at = [&](int i) { return pcm.data() + static_cast<std::size_t>(i) * width; };
    float *const first = buffer_[0] + newest_;
    float *const second = buffer_[1] + newest_;
    if (channels_ == 1) {
        format_->convert(at(0), count, first + gathered_);
    } else {
        // A block may start with the second channel of a pair and end with the first one of another.
        int i = 0;
        if (count > 0 && gathered_ % 2 == 1) format_->convert(at(i++), 1, second + gathered_ / 2);
        float *const left = first + (gathered_ + i) / 2, *const right = second + (gathered_ + i) / 2;
        const int pairs = (count - i) / 2;
        format_->convert_pairs(at(i), pairs, left, right);
        if (i + 2 * pairs < count) format_->convert(at(count - 1), 1, left + pairs);
    }
    gathered_ += count;
    // What is left of the block is either the start of the next frame or a cut sample.
    const auto used = static_cast<std::size_t>(count) * width;
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
