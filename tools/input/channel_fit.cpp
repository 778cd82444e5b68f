#include "input/channel_fit.hpp"

#include "input/sample_value.hpp"

namespace tools {
namespace {

/// The mean of both channels: it never clips, and a float holds the bit that it has more than they.
template <sample_format format>
void mix(std::span<const std::byte> pairs, std::byte *to) noexcept {
    constexpr auto width = static_cast<std::size_t>(format);
    for (std::size_t i = 0; i < pairs.size(); i += 2 * width, to += sizeof(float)) {
        const float mean =
            0.5f * load_sample<format>(&pairs[i]) + 0.5f * load_sample<format>(&pairs[i + width]);
        std::memcpy(to, &mean, sizeof mean);
    }
}

template <std::size_t width>
void duplicate(std::span<const std::byte> samples, std::byte *to) noexcept {
    for (std::size_t i = 0; i < samples.size(); i += width, to += 2 * width) {
        std::memcpy(to, &samples[i], width);
        std::memcpy(to + width, &samples[i], width);
    }
}

} // namespace

channel_fit::channel_fit(std::unique_ptr<pcm_source> source) : source_filter(std::move(source)) {
    shape_.channels = 3 - shape_.channels;
    if (shape_.channels == 1) shape_.format = sample_format::f32;
    // At most doubles: 16-bit pairs become one float, and a duplicate takes twice the bytes.
    buffer_.resize(2 * block_bytes);
}

std::span<const std::byte> channel_fit::next_block() {
    const auto block = source().next_block();
    const bool mixes = shape_.channels == 1;
    switch (source().shape().format) {
    case sample_format::s16:
        mixes ? mix<sample_format::s16>(block, buffer_.data()) : duplicate<2>(block, buffer_.data());
        break;
    case sample_format::s24:
        mixes ? mix<sample_format::s24>(block, buffer_.data()) : duplicate<3>(block, buffer_.data());
        break;
    case sample_format::f32:
        mixes ? mix<sample_format::f32>(block, buffer_.data()) : duplicate<4>(block, buffer_.data());
        break;
    }
    const std::size_t instants = block.size() / source().shape().instant_bytes();
    return std::span(buffer_).first(instants * shape_.instant_bytes());
}

std::unique_ptr<pcm_source> fit_channels(std::unique_ptr<pcm_source> source, int channels) {
    if (source->shape().channels == channels) return source;
    return std::make_unique<channel_fit>(std::move(source));
}

} // namespace tools
