#include "loudness/loudness_meter.hpp"

#include <algorithm>

namespace tools {

loudness_meter::loudness_meter(int channels, int rate)
    : step_length_(static_cast<std::size_t>(rate / loudness_record::steps_a_second * channels)),
      step_instants_(rate / loudness_record::steps_a_second), weighting_(channels, rate),
      peak_(channels) {
}

void loudness_meter::lead_in(std::span<const float> samples) {
    weighting_.add(samples);
    weighting_.take_energy();
    peak_.lead_in(samples);
}

void loudness_meter::add(std::span<const float> samples) {
    peak_.add(samples);
    while (!samples.empty()) {
        const auto part = samples.first(std::min(samples.size(), step_length_ - in_step_));
        weighting_.add(part);
        samples = samples.subspan(part.size());
        in_step_ += part.size();
        if (in_step_ < step_length_) continue;
        in_step_ = 0;
        record_.energy.push_back(static_cast<float>(weighting_.take_energy() / step_instants_));
    }
}

loudness_record loudness_meter::finish(bool is_end) {
    record_.peak = peak_.finish(is_end);
    return std::move(record_);
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
            lead_.clear();
            left_ = part_length(rate_) * static_cast<std::size_t>(channels_);
        }
        const auto next = samples.first(std::min(samples.size(), left_));
        part_.add(next);
        left_ -= next.size();
        const std::size_t kept = std::min(next.size(), lead - std::min(lead, left_));
        lead_.insert(lead_.end(), next.end() - static_cast<std::ptrdiff_t>(kept), next.end());
        samples = samples.subspan(next.size());
    }
}

loudness_record programme_meter::finish() {
    record_.append(part_.finish(true));
    return std::move(record_);
}

} // namespace tools
