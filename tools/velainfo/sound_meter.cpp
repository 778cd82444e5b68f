#include "velainfo/sound_meter.hpp"

#include "settings/record.hpp"
#include "velainfo/decibels.hpp"

#include <algorithm>
#include <cmath>

namespace tools {
namespace {

const float silent_below = static_cast<float>(std::pow(10, sound_report::silence_level / 20));

} // namespace

void sound_meter::start(const parsed_frame &frame) {
    report_.channels = frame.channels();
    rate_ = frame.rate;
    start_ = silent_since_ = samples_;
    // The meter counts in whole samples a step of 10 ms. At 22050 Hz it is told 22100: a weighting that is off
    // by a quarter of a percent of frequency changes no figure.
    const int metered = (rate_ + 50) / 100 * 100;
    report_.step_seconds = metered / 100.0 / rate_;
    loudness_ = std::make_unique<programme_meter>(report_.channels, metered);
}

void sound_meter::add(const parsed_frame &frame, const sample_codes &codes) {
    if (frame.faults == 0 && !loudness_) start(frame);
    if (!loudness_) {
        samples_ += static_cast<std::uint64_t>(frame.samples());
        return;
    }
    const bool is_heard =
        frame.faults == 0 && frame.channels() == report_.channels && frame.rate == rate_;
    if (is_heard)
        requantize(frame, codes, subbands_);
    else
        std::fill_n(&subbands_[0][0][0], sizeof subbands_ / sizeof(float), 0.0F);
    heard_.clear();
    for (int step = 0; step < frame.samples() / 32; ++step) {
        float pcm[2][32] = {};
        for (int ch = 0; ch < report_.channels; ++ch)
            banks_[ch].step(subbands_[ch][step], pcm[ch]);
        hear(pcm);
    }
    loudness_->add(heard_);
}

void sound_meter::hear(const float (&pcm)[2][32]) {
    for (int n = 0; n < 32; ++n) {
        bool silent = true;
        for (int ch = 0; ch < report_.channels; ++ch) {
            const float x = pcm[ch][n], size = std::fabs(x);
            heard_.push_back(x);
            energy_[ch] += static_cast<double>(x) * static_cast<double>(x);
            peak_[ch] = std::max(peak_[ch], size);
            if (is_clipped(x)) ++report_.clipped;
            silent &= size < silent_below;
        }
        product_ += static_cast<double>(pcm[0][n]) * static_cast<double>(pcm[1][n]);
        if (!silent) {
            end_silence();
            silent_since_ = samples_ + 1;
        }
        ++samples_;
    }
}

/// Silence up to here, if there is any.
void sound_meter::end_silence() {
    constexpr double delay = filterbank_delay;
    const double begin = std::max(0.0, static_cast<double>(silent_since_) - delay) / rate_,
                 seconds = std::max(0.0, static_cast<double>(samples_) - delay) / rate_ - begin;
    if (seconds > report_.longest_silence) {
        report_.longest_silence = seconds;
        report_.longest_silence_begin = begin;
    }
    if (seconds >= sound_report::silence_seconds
        && report_.silence.size() < sound_report::listed_stretches)
        report_.silence.push_back({begin, seconds});
}

sound_report sound_meter::finish() {
    sound_report &r = report_;
    if (!loudness_) return r;
    end_silence();
    const auto count = static_cast<double>(samples_ - start_);
    for (std::size_t ch = 0; ch < static_cast<std::size_t>(r.channels); ++ch) {
        const auto peak = static_cast<double>(peak_[ch]);
        r.peak[ch] = level_of(peak * peak);
        r.rms[ch] = level_of(energy_[ch] / count);
        r.is_dead[ch] = peak_[ch] < silent_below;
    }
    if (r.channels == 2 && !r.is_dead[0] && !r.is_dead[1])
        r.correlation = product_ / std::sqrt(energy_[0] * energy_[1]);
    const loudness_record record = loudness_->finish();
    r.loudness = record.figures();
    // Momentary loudness: the mean of 400 ms.
    constexpr std::size_t steps = 40;
    double sum = 0;
    for (std::size_t i = 0; i < record.energy.size(); ++i) {
        sum += static_cast<double>(record.energy[i]);
        if (i >= steps) sum -= static_cast<double>(record.energy[i - steps]);
        r.momentary.push_back(static_cast<float>(-0.691 + level_of(sum / steps)));
    }
    return r;
}

} // namespace tools
