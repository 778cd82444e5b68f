#include "stream/frame_timer.hpp"

#include "stream/rate_tables.hpp"

namespace vela {

void frame_timer::init(int layer, std::int64_t start_time, double khz, double kbps) noexcept {
    samples_per_frame_ = samples_per_frame(layer);
    slot_bits_ = layer == 1 ? 32 : 8;
    const double exact_slots = kbps * samples_per_frame_ / (khz * slot_bits_);
    whole_slots_ = static_cast<int>(exact_slots);
    fraction_ = exact_slots - whole_slots_;
    accumulator_ = -fraction_;
    padding_ = 0;
    running_time_ = static_cast<double>(start_time);
    rate_ = static_cast<int>(1000.0 * khz);
}

int frame_timer::decide_padding() noexcept {
    if (fraction_ == 0.0) return 0;
    if (accumulator_ > fraction_ - 1.0) {
        padding_ = 0;
        accumulator_ = accumulator_ - fraction_;
    } else {
        padding_ = 1;
        accumulator_ = (1.0 - fraction_) + accumulator_;
    }
    return padding_;
}

std::int64_t frame_timer::advance_time() noexcept {
    constexpr double ticks_per_second = 27000000.0;
    running_time_ = samples_per_frame_ * ticks_per_second / rate_ + running_time_;
    // A start near the end of the range: 2^63 ticks and beyond have no 64-bit value.
    if (running_time_ >= 0x1p63) return INT64_MAX;
    return static_cast<std::int64_t>(running_time_);
}

} // namespace vela
