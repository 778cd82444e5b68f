#include "jobs/progress.hpp"

#include "common/counted.hpp"

#include <algorithm>
#include <cmath>

namespace tools {
namespace {

constexpr std::chrono::milliseconds redraw_interval{200};

} // namespace

std::string clock_text(double seconds, int decimals) {
    const double scale = std::pow(10, decimals);
    // Rounded first, so that no field shows 60.
    const auto ticks = static_cast<std::uint64_t>(std::llround(seconds * scale));
    const auto whole = ticks / static_cast<std::uint64_t>(scale);
    const double rest = static_cast<double>(ticks) / scale - static_cast<double>(whole / 60 * 60);
    const int width = decimals == 0 ? 2 : 3 + decimals;
    const auto hours = static_cast<unsigned long>(whole / 3600);
    const auto minutes = static_cast<unsigned long>(whole / 60 % 60);
    if (hours == 0) return formatted("%lu:%0*.*f", minutes, width, decimals, rest);
    return formatted("%lu:%02lu:%0*.*f", hours, minutes, width, decimals, rest);
}

progress::progress(int rate, std::optional<std::uint64_t> length, bool visible)
    : rate_(rate), length_(length), visible_(visible), next_draw_(start_ + redraw_interval) {
}

void progress::update(std::uint64_t samples) {
    samples_ = samples;
    if (!visible_ || clock::now() < next_draw_) return;
    next_draw_ = clock::now() + redraw_interval;
    shown_.show(line());
}

double progress::speed() const {
    const double elapsed = std::chrono::duration<double>(clock::now() - start_).count();
    return static_cast<double>(samples_) / rate_ / elapsed;
}

std::string progress::line() const {
    std::string text = clock_text(static_cast<double>(samples_) / rate_, 0);
    if (length_) text += " of " + clock_text(static_cast<double>(*length_) / rate_, 0);
    text += formatted(", %.0f x real time", speed());
    if (length_ && *length_ >= samples_)
        text +=
            ", " + clock_text(static_cast<double>(*length_ - samples_) / rate_ / speed(), 0) + " left";
    return text;
}

} // namespace tools
