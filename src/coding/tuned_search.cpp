#include "coding/tuned_search.hpp"

#include "coding/bracket.hpp"
#include "coding/frame_bits.hpp"

#include <algorithm>
#include <bit>
#include <limits>

namespace vela {

namespace {

// Slopes as the bits of their doubles: evenly spaced there means evenly spaced on a scale that is as good
// as logarithmic. Downwards, as the search goes.
constexpr std::int64_t octave = std::int64_t{1} << 52;
std::int64_t place_of_slope(double slope) noexcept {
    return -std::bit_cast<std::int64_t>(slope);
}
double slope_at(std::int64_t place) noexcept {
    return std::bit_cast<double>(-place);
}

} // namespace

tuned_search::tuned_search(const coder_config &config, const frame_ladders &ladders, int joint_bound,
                           int frame_bits) noexcept
    : joint_bound_(joint_bound), available_(frame_bits - fixed_bits(config, joint_bound)),
      slope_(std::numeric_limits<double>::max()) {
    for (int ch = 0; ch < config.channels; ++ch) {
        for (int sb = 0; sb < joint_bound; ++sb)
            add(ch, sb, ladders.own[ch][sb]);
    }
    for (int sb = joint_bound; sb < config.sblimit; ++sb)
        add(0, sb, ladders.shared[sb]);
}

void tuned_search::add(int ch, int sb, const ladder &quantizers) noexcept {
    units_[count_++] = {&quantizers, static_cast<std::uint8_t>(ch), static_cast<std::uint8_t>(sb), 0};
}

double tuned_search::least_cost_at(double slope) const noexcept {
    double sum = 0;
    int bits = 0;
    for (const allocation_unit &u : units()) {
        const int corner = u.quantizers->corner_reaching(slope);
        sum += u.quantizers->cost(corner);
        bits += u.quantizers->bits(corner);
    }
    return sum + slope * (bits - std::max(available_, 0));
}

void tuned_search::take_common_slope(double &hint) noexcept {
    int spent = 0;
    // Within 1/32 of an octave, few steps are left.
    const auto ends = narrowed<std::int64_t>(
        {place_of_slope(slope_), 0}, place_of_slope(hint), octave / 8, octave / 32,
        [&](std::int64_t place) {
            int bits = 0;
            for (const allocation_unit &u : units())
                bits += u.quantizers->bits(u.quantizers->corner_reaching(slope_at(place)));
            const bool affordable = bits <= available_;
            if (affordable) spent = bits;
            return affordable;
        });
    slope_ = hint = slope_at(ends.affordable);
    available_ -= spent;
    for (allocation_unit &u : units())
        u.index = static_cast<std::uint8_t>(u.quantizers->corner_reaching(slope_));
}

void tuned_search::take_single_steps() noexcept {
    ladder::step best[64];
    for (int i = 0; i < count_; ++i)
        best[i] = units_[i].quantizers->best_step(units_[i].index, available_);
    while (true) {
        double greatest = 0;
        int found = -1;
        for (int i = 0; i < count_; ++i) {
            found = best[i].slope > greatest ? i : found;
            greatest = std::max(best[i].slope, greatest);
        }
        if (found < 0) return;
        allocation_unit &u = units_[found];
        const int more = u.quantizers->bits(best[found].to) - u.quantizers->bits(u.index);
        if (more <= available_) {
            available_ -= more;
            u.index = static_cast<std::uint8_t>(best[found].to);
        }
        // What has become too dear is looked at again when its turn has come.
        best[found] = u.quantizers->best_step(u.index, available_);
    }
}

double tuned_search::cost() const noexcept {
    double sum = 0;
    for (const allocation_unit &u : units())
        sum += u.quantizers->cost(u.index);
    return sum;
}

double tuned_search::least_cost() const noexcept {
    return cost() - std::max(available_, 0) * slope_;
}

} // namespace vela
