#include "coding/tuned_allocation.hpp"

#include "coding/bit_allocation.hpp"
#include "coding/tuned_scalefactors.hpp"
#include "coding/tuned_search.hpp"
#include "psy/tuned_parameters.hpp"
#include "simd/math.hpp"
#include "vela_enc_mp1a/settings.h"

#include <algorithm>

namespace vela {

namespace {

double decibels(double power) noexcept {
    return 4.342944819032518 * VELA_LEVEL::logarithm(std::max(power, 1e-200));
}

/// Tries the bounds in joint stereo against the search so far, which becomes the best one.
void try_bounds(const weighed_frame &frame, const frame_ladders &ladders, int frame_bits,
                frame_header &header, double &slope_hint, tuned_search &best) noexcept {
    header.mode = MPEG_A_MODE_STEREO;
    header.mode_extension = 0;
    for (int extension = 3; extension >= 0; --extension) {
        // A bound beyond sblimit shares nothing.
        const int bound = joint_bounds[extension];
        if (bound >= frame.config.sblimit) continue;
        tuned_search search(frame.config, ladders, bound, frame_bits);
        const double limit = best.cost() * tuned::less;
        if (search.least_cost_at(slope_hint) >= limit) continue;
        search.take_common_slope(slope_hint);
        if (search.least_cost() >= limit) continue;
        search.take_single_steps();
        if (search.cost() >= limit) continue;
        best = search;
        header.mode = MPEG_A_MODE_JOINT_STEREO;
        header.mode_extension = static_cast<std::uint8_t>(extension);
    }
}

void use_shared_scalefactors(const coder_config &config, const channel_scalefactors &shared,
                             side_info &side) noexcept {
    for (int ch = 0; ch < config.channels; ++ch) {
        for (int sb = side.joint_bound; sb < config.sblimit; ++sb) {
            side.scfsi[ch][sb] = shared.scfsi[ch][sb];
            for (int part = 0; part < config.parts(); ++part)
                side.scalefactor[ch][part][sb] = shared.scalefactor[ch][part][sb];
        }
    }
}

/// Allocates by the least mask-to-noise ratio, with the cost of no bits for a signal-to-mask ratio.
/// @param slope  benefit a bit where the bits run out, for a first guess
int allocate_by_ratio(const coder_config &config, const tuned_search &search, double slope,
                      int frame_bits, side_info &side) noexcept {
    smr_table smr{};
    for (const allocation_unit &u : search.units()) {
        smr[u.ch][u.sb] = decibels(u.quantizers->cost(0));
        if (u.sb >= search.joint_bound()) smr[1][u.sb] = smr[0][u.sb];
    }
    // A bit for each of n samples quarters the noise: of the cost C, it takes away C ln 4 / n.
    double hint = -decibels(slope * 12.0 * config.parts() / tuned::noise_a_bit);
    return allocate_bits(config, smr, frame_bits, side, hint);
}

/// What the units cost as allocated.
double cost_of(const tuned_search &search, const side_info &side) noexcept {
    double sum = 0;
    for (const allocation_unit &u : search.units())
        sum += u.quantizers->cost(side.allocation[u.ch][u.sb]);
    return sum;
}

void store_allocation(const tuned_search &search, side_info &side) noexcept {
    for (const allocation_unit &u : search.units()) {
        side.allocation[u.ch][u.sb] = u.index;
        if (u.sb >= search.joint_bound()) side.allocation[1][u.sb] = u.index;
    }
}

} // namespace

int allocate_tuned(const weighed_frame &frame, int frame_bits, frame_header &header, side_info &side,
                   double &slope_hint) noexcept {
    const coder_config &config = frame.config;
    frame_ladders ladders;
    ladders.build_own(frame, side);
    tuned_search best(config, ladders, config.sblimit, frame_bits);
    best.take_common_slope(slope_hint);
    best.take_single_steps();
    // Below the first bound none are chosen, but the kernels look there too.
    channel_scalefactors shared{};
    if (config.mode == MPEG_A_MODE_JOINT_STEREO) {
        choose_shared_scalefactors(frame, side.joint_index, shared);
        ladders.build_shared(frame, shared, side.joint_index);
        try_bounds(frame, ladders, frame_bits, header, slope_hint, best);
    }
    side.joint_bound = best.joint_bound();
    use_shared_scalefactors(config, shared, side);
    // Where a frame has bits for a few steps only, the search may get stuck between them, and be worse
    // than one that takes small steps.
    const int left = allocate_by_ratio(config, best, slope_hint, frame_bits, side);
    if (cost_of(best, side) < best.cost() * tuned::less) return left;
    store_allocation(best, side);
    return best.available();
}

} // namespace vela
