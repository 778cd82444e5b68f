#include "velainfo/live_view.hpp"

#include "jobs/progress.hpp"
#include "velainfo/decibels.hpp"
#include "velainfo/text_report.hpp"

#include <algorithm>
#include <cmath>

namespace tools {

void live_view::add(const parsed_frame &frame, const sample_codes &codes) {
    last_frame_ = clock::now();
    last_ = frame;
    if (frame.faults != 0) return;
    requantize(frame, codes, subbands_);
    for (int ch = 0; ch < frame.channels(); ++ch)
        for (int i = 0; i < 12 * frame.parts; ++i)
            for (const float x : subbands_[ch][i])
                energy_[ch] += static_cast<double>(x) * static_cast<double>(x);
    steps_ += 12 * frame.parts;
}

void live_view::update(const stream_report &so_far) {
    const auto now = clock::now();
    if (now < next_draw_) return;
    next_draw_ = now + std::chrono::seconds(1);
    shown_.show(line(so_far));
    energy_[0] = energy_[1] = 0;
    steps_ = 0;
}

std::string live_view::line(const stream_report &so_far) const {
    const auto silent = std::chrono::duration<double>(clock::now() - last_frame_).count();
    std::string text = clock_text(so_far.seconds(), 0)
                       + format(", %llu frames", static_cast<unsigned long long>(so_far.frames));
    if (so_far.frames > 0) text += format(", %d Hz, %d kbit/s", last_.rate, last_.kbps);
    text += so_far.is_sound() ? ", no damage"
                              : format(", damage in %llu places",
                                       static_cast<unsigned long long>(so_far.damage_count));
    if (silent >= 1.5) return text + format(", nothing for %.0f s", silent);
    if (steps_ == 0) return text;
    text += ", level";
    for (int ch = 0; ch < last_.channels(); ++ch)
        text += format(" %.1f", level_of(energy_[ch] / steps_));
    return text + " dB";
}

} // namespace tools
