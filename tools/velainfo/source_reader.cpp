#include "velainfo/source_reader.hpp"

#include "common/failure.hpp"
#include "input/channel_matrix.hpp"
#include "input/open_pcm.hpp"
#include "input/resampler.hpp"
#include "input/sample_value.hpp"

#include <algorithm>

namespace tools {
namespace {

std::unique_ptr<pcm_source> mixed_down(std::unique_ptr<pcm_source> source, const std::string &path) {
    if (source->shape().channels <= 2) return source;
    auto speakers = source->speakers();
    if (speakers.empty()) speakers = wav_speakers(source->shape().channels);
    auto gains = bs775_gains(speakers);
    if (speakers.empty() || gains.empty())
        throw failure(exit_code::input, path + " has channels for which there is no mixdown to stereo");
    return std::make_unique<channel_matrix>(std::move(source), std::move(gains));
}

} // namespace

std::unique_ptr<pcm_source> open_source(const std::string &path) {
    input_wishes wishes;
    wishes.asks_ffmpeg = true;
    return mixed_down(open_pcm(open_input(path), wishes), path);
}

source_reader::source_reader(std::unique_ptr<pcm_source> source, int channels, int rate)
    : source_(std::move(source)) {
    // The fewer channels, the less there is to resample.
    if (channels < source_->shape().channels) source_ = fit_channels(std::move(source_), channels);
    if (source_->shape().rate != rate) source_ = std::make_unique<resampler>(std::move(source_), rate);
    source_ = fit_channels(std::move(source_), channels);
}

void source_reader::adjust(float gain, bool swapped) {
    gain_ = gain;
    swapped_ = swapped;
}

bool source_reader::refill() {
    if (ended_) return false;
    load_samples(source_->next_block(), source_->shape().format, block_);
    ended_ = block_.empty();
    const auto width = static_cast<std::size_t>(channels());
    const auto most = static_cast<std::size_t>(reach) * width;
    if (held_.size() > 2 * most) {
        const std::size_t dropped = held_.size() - most;
        held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(dropped));
        held_first_ += static_cast<std::int64_t>(dropped / width);
    }
    held_.insert(held_.end(), block_.begin(), block_.end());
    return !ended_;
}

std::optional<std::int64_t> source_reader::length() const {
    if (ended_)
        return held_first_ + static_cast<std::int64_t>(held_.size()) / source_->shape().channels;
    const auto known = source_->length();
    return known ? std::optional(static_cast<std::int64_t>(*known)) : std::nullopt;
}

channel_sound source_reader::read_channels(std::int64_t first, std::size_t instants) {
    const auto width = static_cast<std::size_t>(channels());
    channel_sound out(width, std::vector<float>(instants));
    const std::int64_t end = first + static_cast<std::int64_t>(instants);
    while (held_first_ + static_cast<std::int64_t>(held_.size() / width) < end && refill()) {
    }
    const std::int64_t held_end = held_first_ + static_cast<std::int64_t>(held_.size() / width);
    for (std::int64_t n = std::max(first, held_first_); n < std::min(end, held_end); ++n)
        for (std::size_t ch = 0; ch < width; ++ch)
            out[ch][static_cast<std::size_t>(n - first)] =
                held_[static_cast<std::size_t>(n - held_first_) * width + ch];
    return out;
}

std::vector<float> source_reader::read(std::int64_t first, std::size_t instants) {
    const channel_sound sound = read_channels(first, instants);
    std::vector<float> out;
    for (std::size_t n = 0; n < instants; ++n)
        for (std::size_t ch = 0; ch < sound.size(); ++ch)
            out.push_back(gain_ * sound[swapped_ ? 1 - ch : ch][n]);
    return out;
}

} // namespace tools
