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
    lead_ = layer == 1 ? 64 : 0;
    history_ = 640 + lead_;
    newest_ = history_;
}

int pcm_input::fill_frames(std::span<const std::uint8_t> &pcm, bool flush, int wanted) noexcept {
    if (flush) {
        if (gathered_ == 0) return 0;
        pad();
    } else {
        take(pcm, wanted);
    }
    const int frames = gathered_ / (frame_samples_ * channels_);
    if (frames == 0) return 0;
    gathered_ = 0;
    frames_ = frames;
    return frames;
}

void pcm_input::take(std::span<const std::uint8_t> &pcm, int wanted) noexcept {
    const auto width = static_cast<std::size_t>(format_->width);
    const int frame_values = frame_samples_ * channels_;
    const int present = static_cast<int>(
        std::min(pcm.size() / width, static_cast<std::size_t>(wanted * frame_values - gathered_)));
    const int frames = (gathered_ + present) / frame_values;
    const int count = frames == 0 ? present : frames * frame_values - gathered_;
    if (count > 0 && gathered_ == 0) make_room();
    const auto sample_at = [&](int i) { return pcm.data() + static_cast<std::size_t>(i) * width; };
    float *const first = buffer_ + newest_;
    float *const second = first + room();
    if (channels_ == 1) {
        format_->convert(sample_at(0), count, first + gathered_);
    } else {
        // A block may start with the second channel of a pair and end with the first one of another.
        int i = 0;
        if (count > 0 && gathered_ % 2 == 1)
            format_->convert(sample_at(i++), 1, second + gathered_ / 2);
        float *const left = first + (gathered_ + i) / 2, *const right = second + (gathered_ + i) / 2;
        const int pairs = (count - i) / 2;
        format_->convert_pairs(sample_at(i), pairs, left, right);
        if (i + 2 * pairs < count) format_->convert(sample_at(count - 1), 1, left + pairs);
    }
    gathered_ += count;
    // What is left of the block is either the start of the next frame or a cut sample.
    pcm = frames == 0 ? std::span<const std::uint8_t>{}
                      : pcm.subspan(static_cast<std::size_t>(count) * width);
}

void pcm_input::make_room() noexcept {
    newest_ += frames_ * frame_samples_;
    frames_ = 0;
    if (newest_ + most_new_values / channels_ <= room()) return;
    for (int c = 0; c < channels_; ++c) {
        float *const channel = buffer_ + c * room();
        std::memmove(channel, channel + newest_ - history_,
                     static_cast<std::size_t>(history_) * sizeof(float));
    }
    newest_ = history_;
}

void pcm_input::pad() noexcept {
    for (int c = 0; c < channels_; ++c) {
        float *const newest = buffer_ + c * room() + newest_;
        const int present = (gathered_ + channels_ - 1 - c) / channels_;
        std::fill(newest + present, newest + frame_samples_, 0.0F);
    }
    gathered_ = frame_samples_ * channels_;
}

} // namespace vela
