#include "coding/tuned_memory.hpp"

#include "coding/frame_bits.hpp"

#include <algorithm>
#include <iterator>
#include <limits>

namespace vela {

namespace {

constexpr int bound_8 = 1, stereo = 4; ///< choices

/// Joint bounds, the last one for stereo.
int bound_of(const coder_config &config, int choice) noexcept {
    return choice == stereo ? config.sblimit : std::min(joint_bounds[choice], config.sblimit);
}

int first_subband(int row) noexcept {
    return row == frame_costs::shared ? joint_bounds[0] : 0;
}

/// What first bits must take away to be kept.
/// @param frame_bits  without padding
double weak_share(const coder_config &config, int frame_bits) noexcept {
    const int samples = 12 * config.parts() * config.channels * config.sblimit;
    return std::clamp(tuned::weak_a_bit * (1.0 * frame_bits / samples - tuned::weak_from_bits),
                      tuned::least_weak, tuned::most_weak);
}

/// And to be had where there were none.
double strong_share(double weak) noexcept {
    return tuned::strong - tuned::strong_a_weak * weak;
}

std::uint32_t above(const double (&slope)[32], double limit, int first, int end) noexcept {
    std::uint32_t found = 0;
    for (int sb = first; sb < end; ++sb)
        found |= std::uint32_t{slope[sb] > limit} << sb;
    return found;
}

/// How much more a frame costs with each bound than with the best one, after Lagrange: by sums of
/// (cost + slope bits).
/// @param chosen  with that slope: [row]
void weigh_bounds(const coder_config &config, const unit_choices *chosen, double slope,
                  double (&excess)[5]) noexcept {
    const auto whole = [&](int row, int sb) {
        return chosen[row].cost[sb] + slope * chosen[row].bits[sb];
    };
    int bounds[5], bits = fixed_bits(config, config.sblimit);
    for (int choice = stereo, sb = config.sblimit; choice >= 0; --choice) {
        bounds[choice] = bound_of(config, choice);
        // What is shared has one allocation field.
        while (sb > bounds[choice])
            bits -= config.table->row(--sb).alloc_bits;
        excess[choice] = slope * bits;
    }
    // Side by side: each waits for its last sum.
    for (int sb = 0; sb < config.sblimit; ++sb) {
        const double shared = sb < joint_bounds[0] ? 0 : whole(frame_costs::shared, sb);
        const double more[2] = {shared, whole(0, sb) + whole(1, sb)};
        for (int choice = 0; choice <= stereo; ++choice)
            excess[choice] += more[sb < bounds[choice]];
    }
    const double least = *std::min_element(std::begin(excess), std::end(excess));
    for (double &e : excess)
        e = e / least - 1;
}

/// The common slope of a frame by itself with its best bound.
void find_bound(const coder_config &config, tuned_search &search, int frame_bits, tuned_memory &memory,
                double (&excess)[5]) noexcept {
    const auto search_with = [&](int choice, double &slope) {
        const int bound = bound_of(config, choice);
        search.take_common_slope(bound, frame_bits - fixed_bits(config, bound), slope);
    };
    double &slope = memory.slope_hint;
    search_with(bound_8, memory.bound_8_hint);
    slope = memory.bound_8_hint;
    weigh_bounds(config, search.choices_of_all(), slope, excess);
    const auto best =
        static_cast<int>(std::min_element(std::begin(excess), std::end(excess)) - std::begin(excess));
    if (best != bound_8) {
        const double before = slope;
        search_with(best, slope);
        if (slope != before) weigh_bounds(config, search.choices_of_all(), slope, excess);
    }
    // Where bits do not run out, all bounds are alike.
    if (tuned_search::is_least(slope)) std::ranges::fill(excess, 0.0);
}

} // namespace

frame_by_itself look_by_itself(const coder_config &config, const frame_costs &costs,
                               tuned_search &search, int frame_bits, tuned_memory &memory) noexcept {
    frame_by_itself found{};
    if (config.mode == MPEG_A_MODE_JOINT_STEREO) {
        find_bound(config, search, frame_bits, memory, found.excess);
    } else {
        search.take_common_slope(config.sblimit, frame_bits - fixed_bits(config, config.sblimit),
                                 memory.slope_hint);
    }
    const double slope = memory.slope_hint;
    const double weak = weak_share(config, frame_bits), strong = strong_share(weak);
    for (int row = 0; row < frame_costs::count(config); ++row) {
        const int first = first_subband(row);
        const double(&slopes)[32] = costs.rows[row].first_slope;
        found.strong[row] = above(slopes, slope * strong, first, config.sblimit);
        found.weak[row] = above(slopes, slope * weak, first, config.sblimit);
    }
    return found;
}

void remember(const frame_by_itself &frame, tuned_memory &memory) noexcept {
    std::copy_backward(std::begin(memory.before), std::end(memory.before) - 1, std::end(memory.before));
    memory.before[0] = frame;
}

void favour_the_past(const weighed_frame &frame, int frame_bits, const tuned_memory &memory,
                     frame_costs &costs) noexcept {
    const coder_config &config = frame.config;
    const double weak = weak_share(config, frame_bits), strong = strong_share(weak);
    std::uint32_t on[3] = {};
    for (int row = 0; row < frame_costs::count(config); ++row) {
        for (int k = tuned::remembered_frames - 1; k >= 0; --k)
            on[row] = memory.before[k].strong[row] | (memory.before[k].weak[row] & on[row]);
    }
    for (int row = 0; row < frame_costs::count(config); ++row) {
        const std::uint32_t beside = row == frame_costs::shared ? 0 : on[1 - row];
        double factor[32];
        for (int sb = 0; sb < 32; ++sb) {
            const bool is_on = (on[row] >> sb & 1) != 0, is_beside = (beside >> sb & 1) != 0;
            factor[sb] = is_on ? 1 / weak : is_beside ? 1 : 1 / strong;
        }
        frame.kernels.favour(costs.rows[row], factor, first_subband(row), config.lane_end());
    }
}

int choose_bound(const coder_config &config, const frame_by_itself &frame,
                 const tuned_memory &memory) noexcept {
    int best = stereo;
    double least = std::numeric_limits<double>::max();
    for (int choice = stereo; choice >= 0; --choice) {
        // A bound beyond sblimit shares nothing.
        if (choice != stereo && joint_bounds[choice] >= config.sblimit) continue;
        double sum = frame.excess[choice], share = 1;
        for (const frame_by_itself &before : memory.before) {
            share *= tuned::bound_memory;
            sum += share * std::min(before.excess[choice], tuned::most_bound_memory);
        }
        // Sums of infinite samples are not numbers.
        if (!(sum < least)) continue;
        least = sum;
        best = choice;
    }
    return bound_of(config, best);
}

} // namespace vela
