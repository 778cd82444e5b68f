#include "coding/tuned_search.hpp"

#include <algorithm>
#include <bit>
#include <limits>
#include <span>

namespace vela {

namespace {

// Slopes on a grid of 8 an octave, as good as logarithmic: the top bits of their doubles. Downwards, as
// the search goes. Few steps lie between neighbours, and what lies above one of them does not depend on
// where one looked first.
constexpr int octave = 8, grid_shift = 52 - 3;
int place_of(double slope) noexcept {
    return -static_cast<int>(std::bit_cast<std::int64_t>(slope) >> grid_shift);
}
double slope_at(int place) noexcept {
    return std::bit_cast<double>(std::int64_t{-place} << grid_shift);
}

/// Slopes are looked for above that.
constexpr double below_all = 0x1p-400;

/// The best step of a single subband.
struct single_step {
    double slope;
    int quantizer;
};

double bits_of(const unit_costs &costs, int q, int sb) noexcept {
    return costs.set->sample_bits[q] + (q == 0 ? costs.ternary_opening : costs.opening)[sb];
}

single_step best_step(const unit_costs &costs, const unit_choices &from, double affordable,
                      int sb) noexcept {
    single_step best{0, 0};
    const quantizer_set::group &group = costs.set->groups[sb / 4];
    for (int i = 0; i < group.count; ++i) {
        const int q = group.quantizers[i];
        if (q < from.quantizer[sb]) continue;
        const double more = bits_of(costs, q, sb) - from.bits[sb];
        if (more > affordable) break;
        const double less = from.cost[sb] - costs.quantized[q][sb];
        if (less > best.slope * more) {
            const double slope = less / more;
            if (slope > best.slope) best = {slope, q + 1};
        }
    }
    return best;
}

} // namespace

bool tuned_search::is_least(double slope) noexcept {
    return place_of(slope) == place_of(below_all) - 1;
}

const unit_choices *tuned_search::climbed(int place, const row_range &range) noexcept {
    const auto &[row, rows, first, end] = range;
    std::uint32_t climb::*const groups = row == frame_costs::shared ? &climb::shared : &climb::own;
    climb *here = std::find_if(climbs_, climbs_ + climb_count_,
                               [place](const climb &c) { return c.place == place; });
    if (here == climbs_ + climb_count_) {
        if (climb_count_ == most_climbs) {
            here = climbs_ + oldest_;
            oldest_ = (oldest_ + 1) % most_climbs;
        } else {
            ++climb_count_;
        }
        here->place = place;
        here->own = here->shared = 0;
    }
    // Ranges reach from a bound to an end: what is missing lies side by side.
    const std::uint32_t missing = ((1U << end / 4) - (1U << first / 4)) & ~(here->*groups);
    if (missing != 0) {
        const climb *coarse = nullptr, *fine = nullptr; // the nearest ones
        for (const climb &c : std::span(climbs_, climb_count_)) {
            if ((missing & ~(c.*groups)) != 0) continue;
            if (c.place < place && (coarse == nullptr || c.place > coarse->place)) coarse = &c;
            if (c.place > place && (fine == nullptr || c.place < fine->place)) fine = &c;
        }
        kernels_.climb(&costs_.rows[row], rows, slope_at(place), 4 * std::countr_zero(missing),
                       4 * static_cast<int>(std::bit_width(missing)),
                       coarse == nullptr ? nullptr : &coarse->choices[row],
                       fine == nullptr ? nullptr : &fine->choices[row], &here->choices[row]);
        here->*groups |= missing;
    }
    return &here->choices[row];
}

reached tuned_search::reach(int place, const row_range &range, row_choices &found) noexcept {
    const auto &[row, rows, first, end] = range;
    if (first == end) return {};
    return kernels_.reach(&costs_.rows[row], climbed(place, range), rows, slope_at(place), first, end,
                          &found[row]);
}

reached tuned_search::reach(int place, row_choices &found) noexcept {
    reached all{};
    for (const row_range &range : rows_) {
        const reached some = reach(place, range, found);
        all.bits += some.bits;
        all.subbands += some.subbands;
    }
    return all;
}

const unit_choices *tuned_search::choices_of_all() noexcept {
    row_choices &all = tried_[chosen_];
    const int bound = rows_.ranges[0].end, end = rows_.ranges[rows_.count - 1].end;
    const row_range others[] = {{0, 2, bound, end}, {frame_costs::shared, 1, joint_bounds[0], bound}};
    for (const row_range &range : others)
        reach(place_, range, all);
    return all;
}

void tuned_search::take_common_slope(int joint_bound, int available, double &hint) noexcept {
    rows_ = frame_rows(config_, joint_bound);
    const int samples = 12 * config_.parts();
    const int first = place_of(std::numeric_limits<double>::max());
    int affordable = first, beyond = place_of(below_all);
    int place = place_of(hint), spent = -1, too_many = -1;
    int stride = 1, guesses = 0;
    for (int tries = 1; beyond - affordable > 1; ++tries) {
        place = std::clamp(place, affordable + 1, beyond - 1);
        const auto [bits, subbands] = reach(place, tried_[1 - chosen_]);
        const int left = available - bits;
        if (left >= 0) {
            affordable = place;
            spent = bits;
            chosen_ = 1 - chosen_;
        } else {
            beyond = place;
            too_many = bits;
        }
        if (spent < 0 || too_many < 0) {
            // Half the slope is half the noise: half a bit more for each sample. If it is less than that,
            // strides grow.
            const int bits_an_octave = (subbands + 1) * samples / 2;
            const int way = left * octave / bits_an_octave;
            place += left < 0 ? std::min(way, -stride) : std::max(way, stride);
            if (tries > 2) stride *= 2;
        } else if (++guesses <= 3) {
            place = affordable
                    + (available - spent) * (beyond - affordable) / std::max(too_many - spent, 1);
        } else {
            place = affordable + (beyond - affordable) / 2;
        }
    }
    if (spent < 0) {
        chosen_ = 1 - chosen_;
        spent = reach(first, tried_[chosen_]).bits;
    }
    place_ = affordable;
    hint = slope_at(affordable);
    available_ = available - spent;
}

void tuned_search::find_steps(unit_steps *steps) const noexcept {
    for (const auto &[first_row, rows, first, end] : rows_) {
        for (int row = first_row; row < first_row + rows; ++row)
            kernels_.best_steps(costs_.rows[row], tried_[chosen_][row], available_, first, end,
                                steps[row]);
    }
}

void tuned_search::take_single_steps() noexcept {
    // Of a step, in Layer II from seven steps to nine: one for each triplet. From three to five there may be as
    // many scale factors less as 12 of the 24 bits.
    constexpr int fewest_bits = 12;
    if (available_ < fewest_bits) return;
    unit_steps steps[3];
    find_steps(steps);
    while (available_ >= fewest_bits) {
        double greatest = 0;
        int found = -1;
        for (const auto &[first_row, rows, first, end] : rows_) {
            for (int row = first_row; row < first_row + rows; ++row) {
                for (int sb = first; sb < end; ++sb) {
                    const bool is_greater = steps[row].slope[sb] > greatest;
                    found = is_greater ? 32 * row + sb : found;
                    greatest = std::max(steps[row].slope[sb], greatest);
                }
            }
        }
        if (found < 0) return;
        const int row = found / 32, sb = found % 32;
        const unit_costs &costs = costs_.rows[row];
        unit_choices &choices = tried_[chosen_][row];
        const int to = static_cast<int>(steps[row].quantizer[sb]) - 1;
        const double bits = bits_of(costs, to, sb);
        const int more = static_cast<int>(bits - choices.bits[sb]);
        if (more > available_) {
            // Where one has become too dear, others have.
            find_steps(steps);
            continue;
        }
        available_ -= more;
        choices.quantizer[sb] = to + 1;
        choices.bits[sb] = bits;
        choices.cost[sb] = costs.quantized[to][sb];
        const single_step next = best_step(costs, choices, available_, sb);
        steps[row].slope[sb] = next.slope;
        steps[row].quantizer[sb] = next.quantizer;
    }
}

} // namespace vela
