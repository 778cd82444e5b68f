#include "jobs/batch_progress.hpp"

#include "common/counted.hpp"

#include <algorithm>
#include <cmath>

namespace tools {

void batch_progress::file::sound(int rate, std::optional<std::uint64_t> length) noexcept {
    rate_ = rate;
    length_ = length;
}

void batch_progress::file::update(std::uint64_t samples) {
    const auto in_microseconds = [this](std::uint64_t count) {
        return count * 1000000 / static_cast<std::uint64_t>(rate_);
    };
    all_.microseconds_ += in_microseconds(samples) - in_microseconds(counted_samples_);
    counted_samples_ = samples;
    if (!length_) return;
    // Of none at all the smaller one is 1, too.
    const double part = std::min(1.0, static_cast<double>(samples) / static_cast<double>(*length_));
    const auto bytes = static_cast<std::uint64_t>(part * static_cast<double>(bytes_));
    all_.bytes_done_ += bytes - counted_bytes_;
    counted_bytes_ = bytes;
}

void batch_progress::file::end(bool without_work) noexcept {
    (without_work ? all_.bytes_skipped_ : all_.bytes_done_) += bytes_ - counted_bytes_;
    ++all_.files_done_;
}

double batch_progress::elapsed() const {
    return std::chrono::duration<double>(clock::now() - start_).count();
}

std::string batch_progress::speed() const {
    return std::to_string(std::llround(seconds() / elapsed())) + " x real time";
}

std::string batch_progress::totals() const {
    return clock_text(seconds(), 0) + " in " + clock_text(elapsed(), 0) + ", " + speed();
}

std::string batch_progress::line() const {
    const double done = static_cast<double>(bytes_done_);
    const double left = static_cast<double>(bytes_ - bytes_skipped_) - done;
    std::string text = std::to_string(files_done_) + " of " + counted(files_, "file") + ", "
                       + clock_text(seconds(), 0) + " done, " + speed();
    if (done > 0) text += ", " + clock_text(left * elapsed() / done, 0) + " left";
    return text;
}

} // namespace tools
