#include "coding/tuned_scalefactors.hpp"

#include "coding/scalefactor_table.hpp"
#include "coding/tuned_purchase.hpp"
#include "psy/tuned_parameters.hpp"

#include <algorithm>
#include <cstring>

namespace vela {

namespace {

/// Half the steps of each subband's quantizer; 1/2 where there are no bits.
void find_half_steps(const coder_config &config, const std::uint8_t (&allocation)[32],
                     double (&half)[32]) noexcept {
    std::ranges::fill(half, 0.5);
    for (int sb = 0; sb < config.sblimit; ++sb) {
        const int n = allocation[sb];
        if (n > 0) half[sb] = quant_classes[config.table->row(sb).classes[n]].steps * 0.5;
    }
}

int count_of(const sent_scalefactors &sent, int sb) noexcept {
    return scalefactors_per_scfsi[static_cast<int>(sent.scfsi[sb])];
}

void store(const coder_config &config, double scfsi, const part_values &index, int ch, int sb,
           side_info &side) noexcept {
    if (config.layer == 2) side.scfsi[ch][sb] = static_cast<std::uint8_t>(scfsi);
    for (int part = 0; part < config.parts(); ++part)
        side.scalefactor[ch][part][sb] = static_cast<std::uint8_t>(index[part][sb]);
}

/// The selection of one of the offers.
double scfsi_of(const scalefactor_offers &offers, int sent, int sb) noexcept {
    if (sent == 2) return offers.scfsi_of_two[sb];
    return sent == 1 ? 2 : 0;
}

/// Of the scale factor 1, with which mixed samples are quantized.
constexpr std::uint8_t index_of_one = 3;
static_assert(scalefactor_table[index_of_one] == 1);

void compare(const weighed_frame &frame, int ch, const part_samples *decoded, int first,
             shared_fit &fit) noexcept {
    for (int part = 0; part < frame.config.parts(); ++part)
        frame.kernels.sum_products(frame.samples[ch][part], decoded[part], first,
                                   frame.config.lane_end(), fit.product[part]);
}

/// Fits the scale factors of shared subbands to what is decoded before them.
void fit_decoded(const weighed_frame &frame, const own_scalefactors (&own)[2], const double (&half)[32],
                 int bound, scalefactor_offers (&offers)[2]) noexcept {
    const int parts = frame.config.parts(), end = frame.config.lane_end();
    part_samples decoded[3];
    shared_fit fit{};
    for (int part = 0; part < parts; ++part) {
        frame.kernels.decode(frame.joint[part], half, bound, end, decoded[part]);
        frame.kernels.sum_products(decoded[part], decoded[part], bound, end, fit.square[part]);
    }
    for (int ch = 0; ch < 2; ++ch) {
        compare(frame, ch, decoded, bound, fit);
        std::memcpy(fit.energy, own[ch].energy, parts * sizeof fit.energy[0]);
        frame.kernels.fit_again(fit, parts, own[ch].weight, bound, end, offers[ch]);
    }
}

void mix_as_sent(const weighed_frame &frame, const own_scalefactors (&own)[2],
                 const side_info &side) noexcept {
    part_values index[2];
    for (int ch = 0; ch < 2; ++ch) {
        for (int part = 0; part < frame.config.parts(); ++part)
            std::ranges::copy(side.scalefactor[ch][part], index[ch][part]);
    }
    mix(frame, own, index[0], index[1], side.joint_bound);
}

} // namespace

void look_up(const std::uint8_t (&index)[32], part_scalefactors &values) noexcept {
    for (int sb = 0; sb < 32; ++sb) {
        values.value[sb] = scalefactor_table[index[sb]];
        values.inverse[sb] = inverse_scalefactor[index[sb]];
        values.index[sb] = index[sb];
    }
}

shared_parts mix(const weighed_frame &frame, const own_scalefactors (&own)[2],
                 const part_values &index0, const part_values &index1, int first) noexcept {
    const shared_parts parts{{frame.samples[0], frame.samples[1]},
                             {&own[0].weight, &own[1].weight},
                             {&own[0].energy, &own[1].energy},
                             {&index0, &index1}};
    frame.kernels.mix(parts, frame.config.parts(), first, frame.config.lane_end(), frame.joint);
    return parts;
}

void choose_own_scalefactors(const weighed_frame &frame, int ch, const std::uint8_t (&peaks)[3][32],
                             own_scalefactors &chosen) noexcept {
    const int parts = frame.config.parts();
    for (int part = 0; part < parts; ++part) {
        look_up(peaks[part], chosen.peaks[part]);
        std::ranges::copy(frame.weights[ch][part], chosen.weight[part]);
    }
    frame.kernels.choose_ternary(frame.samples[ch], parts, chosen.peaks, chosen.weight,
                                 frame.config.lane_end(), chosen.ternary, chosen.ternary_cost,
                                 chosen.energy);
    if (parts == 1) {
        chosen.used[0] = chosen.peaks[0];
        std::ranges::copy(chosen.peaks[0].index, chosen.finer.index[0]);
        std::ranges::fill(chosen.finer.scfsi, 0.0);
    } else {
        frame.kernels.choose_finer(chosen.peaks, chosen.weight, frame.config.lane_end(), chosen.finer,
                                   chosen.used);
    }
}

void choose_shared_scalefactors(const weighed_frame &frame, const own_scalefactors (&own)[2],
                                const std::uint8_t (&peaks)[3][32],
                                sent_scalefactors (&chosen)[2]) noexcept {
    const coder_config &config = frame.config;
    const int first = joint_bounds[0], end = config.lane_end();
    shared_fit fit{};
    part_values square{};
    for (int part = 0; part < config.parts(); ++part)
        frame.kernels.sum_products(frame.joint[part], frame.joint[part], first, end, square[part]);
    for (int ch = 0; ch < 2; ++ch) {
        compare(frame, ch, frame.joint, first, fit);
        for (int part = 0; part < config.parts(); ++part) {
            for (int sb = first; sb < end; ++sb) {
                const double scale = inverse_scalefactor[peaks[part][sb]];
                fit.product[part][sb] *= scale;
                fit.square[part][sb] = square[part][sb] * (scale * scale);
                fit.energy[part][sb] = own[ch].energy[part][sb];
            }
        }
        frame.kernels.fit(fit, config.parts(), own[ch].weight, tuned::middle_quantizer_noise, first,
                          end, chosen[ch]);
    }
}

int refine_scalefactors(const weighed_frame &frame, const own_scalefactors (&own)[2],
                        const sent_scalefactors (&shared)[2], int left, double slope,
                        side_info &side) noexcept {
    const coder_config &config = frame.config;
    const int parts = config.parts(), bound = side.joint_bound;
    const int end = config.lane_end(), own_end = bound < config.sblimit ? bound : end;
    double half[32];
    scalefactor_offers offers[2];
    for (int ch = 0; ch < config.channels; ++ch) {
        find_half_steps(config, side.allocation[ch], half);
        frame.kernels.refine(frame.samples[ch], parts, own[ch].peaks, own[ch].weight, own[ch].energy,
                             half, 0, own_end, offers[ch]);
    }
    if (bound < config.sblimit) fit_decoded(frame, own, half, bound, offers);
    tuned_purchase purchase;
    for (int ch = 0; ch < config.channels; ++ch) {
        const std::uint8_t(&quantizer)[32] = side.allocation[ch];
        for (int sb = 0; sb < config.sblimit; ++sb) {
            const bool is_own = sb < bound;
            const sent_scalefactors &finer = is_own ? own[ch].finer : shared[ch];
            if (quantizer[sb] > (is_own ? 1 : 0)) {
                purchase.add(ch, sb, parts == 1 ? 1 : count_of(finer, sb));
            } else {
                const sent_scalefactors &from = is_own && quantizer[sb] == 1 ? own[ch].ternary : finer;
                store(config, from.scfsi[sb], from.index, ch, sb, side);
            }
        }
    }
    if (parts > 1) left = purchase.buy(offers, left, slope);
    for (const tuned_purchase::buyer &b : purchase)
        store(config, scfsi_of(offers[b.ch], b.sent, b.sb), offers[b.ch].index[b.sent - 1], b.ch, b.sb,
              side);
    if (bound < config.sblimit) {
        mix_as_sent(frame, own, side);
        for (auto &part : side.joint_index)
            std::ranges::fill(part, index_of_one);
    }
    return left;
}

} // namespace vela
