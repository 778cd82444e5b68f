#include "loudness/loudness_meter.hpp"

#include <algorithm>
#include <cmath>
#include <new>

namespace tools {
namespace {

/// The interpolation of a value between samples takes 13 of them.
constexpr std::size_t neighbours = 12;
constexpr std::size_t block_samples = 64;

/// No value between samples is larger than this times the largest of its neighbours: the magnitudes of
/// the interpolator's coefficients (a sinc of 49 taps under a Hann window, four phases) add up to 1.87.
/// So most blocks need not be interpolated, which takes eight times as long as everything else here.
constexpr float most_overshoot = 2;

ebur128_state *begin(std::size_t channels, int rate, int mode) {
    ebur128_state *const state =
        ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(rate), mode);
    if (state == nullptr) throw std::bad_alloc();
    return state;
}

void hear(ebur128_state &state, std::span<const float> samples) {
    if (ebur128_add_frames_float(&state, samples.data(), samples.size() / state.channels)
        != EBUR128_SUCCESS)
        throw std::bad_alloc(); // the only way to fail
}

float largest_of(std::span<const float> samples) {
    float largest = 0;
    for (const float sample : samples)
        largest = std::max(largest, std::abs(sample));
    return largest;
}

} // namespace

void loudness_meter::closes::operator()(ebur128_state *state) const noexcept {
    ebur128_destroy(&state);
}

loudness_meter::loudness_meter(int channels, int rate)
    : channels_(static_cast<std::size_t>(channels)),
      step_length_(static_cast<std::size_t>(rate / loudness_record::steps_a_second) * channels_),
      weighted_(begin(channels_, rate, EBUR128_MODE_M)),
      interpolated_(begin(channels_, rate, EBUR128_MODE_TRUE_PEAK)), near_(neighbours * channels_) {
}

void loudness_meter::lead_in(std::span<const float> samples) {
    hear(*weighted_, samples);
    const auto last = samples.last(std::min(samples.size(), near_.size()));
    std::ranges::copy(last, near_.end() - static_cast<std::ptrdiff_t>(last.size()));
}

void loudness_meter::add(std::span<const float> samples) {
    find_peak(samples);
    while (!samples.empty()) {
        const auto part = samples.first(std::min(samples.size(), step_length_ - in_step_));
        hear(*weighted_, part);
        samples = samples.subspan(part.size());
        in_step_ += part.size();
        if (in_step_ < step_length_) continue;
        in_step_ = 0;
        double loudness = 0;
        ebur128_loudness_window(weighted_.get(), 1000 / loudness_record::steps_a_second, &loudness);
        record_.energy.push_back(static_cast<float>(std::pow(10, (loudness + 0.691) / 10)));
    }
}

loudness_record loudness_meter::finish(bool is_end) {
    if (is_end) near_.resize(near_.size() + neighbours * channels_);
    look_between();
    return std::move(record_);
}

void loudness_meter::find_peak(std::span<const float> samples) {
    const std::size_t full = (neighbours + block_samples) * channels_;
    while (!samples.empty()) {
        const auto part = samples.first(std::min(samples.size(), full - near_.size()));
        near_.insert(near_.end(), part.begin(), part.end());
        samples = samples.subspan(part.size());
        if (near_.size() == full) look_between();
    }
}

void loudness_meter::look_between() {
    const std::span<const float> around = near_;
    const std::size_t known = neighbours * channels_;
    const bool matters = largest_of(around) * most_overshoot > static_cast<float>(record_.peak);
    if (matters) {
        if (!follows_on_) hear(*interpolated_, around.first(known));
        hear(*interpolated_, around.subspan(known));
        for (unsigned channel = 0; channel < channels_; ++channel) {
            double peak = 0;
            ebur128_prev_true_peak(interpolated_.get(), channel, &peak);
            record_.peak = std::max(record_.peak, peak);
        }
    }
    follows_on_ = matters;
    near_.erase(near_.begin(), near_.end() - static_cast<std::ptrdiff_t>(known));
}

programme_meter::programme_meter(int channels, int rate)
    : channels_(channels), rate_(rate), left_(part_length(rate) * static_cast<std::size_t>(channels)),
      part_(channels, rate) {
}

void programme_meter::add(std::span<const float> samples) {
    const std::size_t lead = loudness_meter::lead(rate_) * static_cast<std::size_t>(channels_);
    while (!samples.empty()) {
        if (left_ == 0) {
            record_.append(part_.finish(false));
            part_ = loudness_meter(channels_, rate_);
            part_.lead_in(lead_);
            left_ = part_length(rate_) * static_cast<std::size_t>(channels_);
        }
        const auto next = samples.first(std::min(samples.size(), left_));
        part_.add(next);
        left_ -= next.size();
        const auto kept = next.last(std::min(next.size(), lead));
        lead_.erase(lead_.begin(), lead_.begin()
                                       + std::max<std::ptrdiff_t>(
                                           0, static_cast<std::ptrdiff_t>(lead_.size() + kept.size())
                                                  - static_cast<std::ptrdiff_t>(lead)));
        lead_.insert(lead_.end(), kept.begin(), kept.end());
        samples = samples.subspan(next.size());
    }
}

loudness_record programme_meter::finish() {
    record_.append(part_.finish(true));
    return std::move(record_);
}

} // namespace tools
