#include "coding/tuned_scalefactors.hpp"

#include "coding/scalefactor_table.hpp"
#include "coding/scalefactors.hpp"
#include "psy/tuned_parameters.hpp"

#include <algorithm>
#include <iterator>
#include <limits>

namespace vela {

namespace {

/// In the order in which the selections are tried: of equals the one with the fewest bits wins.
constexpr unsigned selections[] = {2, 1, 3, 0};

/// Parts that may share a scale factor: from the first one up to the one before the end.
struct range {
    int first, end;
};
constexpr range ranges[] = {{0, 1}, {1, 2}, {2, 3}, {0, 2}, {1, 3}, {0, 3}};
/// The range of a part's scale factor, by scfsi and part.
constexpr unsigned range_of[4][3] = {{0, 1, 2}, {3, 3, 2}, {5, 5, 5}, {0, 4, 4}};

/// A channel's part of a shared subband: the noise with a scale factor s is
/// weight (energy - 2 s product + s^2 square) and that of the quantizer.
struct shared_part {
    double weight, energy, product, square;
};

double squared_scale(std::uint8_t index) noexcept {
    return scalefactor_table[index] * scalefactor_table[index];
}

/// Index of the scale factor that is nearest to a ratio of samples, by proportion.
std::uint8_t nearest_index(double product, double square) noexcept {
    constexpr double half_step = 0.8908987181403393; // 2^(-1/6)
    if (!(product > 0)) return 62;
    return static_cast<std::uint8_t>(std::min(scalefactor_index(product / square * half_step), 62));
}

struct selection {
    std::uint8_t scfsi, index[3];
};

selection choose_shared(const shared_part (&parts)[3], int count) noexcept {
    std::uint8_t nearest[std::size(ranges)];
    for (unsigned i = 0; i < (count == 1 ? 1 : std::size(ranges)); ++i) {
        double product = 0, square = 0;
        for (int part = ranges[i].first; part < ranges[i].end; ++part) {
            product += parts[part].weight * parts[part].product;
            square += parts[part].weight * parts[part].square;
        }
        nearest[i] = nearest_index(product, square);
    }
    selection best{};
    double least = std::numeric_limits<double>::max();
    for (const unsigned scfsi : selections) {
        if (count == 1 && scfsi != 0) continue;
        selection tried{static_cast<std::uint8_t>(scfsi), {}};
        const double quantizer = tuned::middle_quantizer_noise
                                 * (1 + tuned::shared_selection_price * scalefactors_per_scfsi[scfsi]);
        double noise = 0;
        for (int part = 0; part < count; ++part) {
            tried.index[part] = nearest[range_of[scfsi][part]];
            const shared_part &p = parts[part];
            const double s = scalefactor_table[tried.index[part]];
            noise += p.weight * (p.energy - 2 * s * p.product + s * s * (p.square + quantizer));
        }
        if (noise < least) {
            least = noise;
            best = tried;
        }
    }
    return best;
}

} // namespace

void choose_tuned_scfsi(const coder_config &config, const noise_weights &weights,
                        channel_scalefactors &chosen) noexcept {
    for (int ch = 0; ch < config.channels; ++ch) {
        auto &index = chosen.scalefactor[ch];
        const auto &weight = weights[ch];
        for (int sb = 0; sb < config.sblimit; ++sb) {
            // Parts take the largest of the scale factors that they share, which is the smallest index.
            const std::uint8_t i0 = index[0][sb], i1 = index[1][sb], i2 = index[2][sb];
            const std::uint8_t early = std::min(i0, i1), late = std::min(i1, i2);
            const std::uint8_t all = std::min(early, i2);
            const std::uint8_t used[4][3] = {
                {i0, i1, i2}, {early, early, i2}, {all, all, all}, {i0, late, late}};
            unsigned best = selections[0];
            double least = std::numeric_limits<double>::max();
            for (const unsigned scfsi : selections) {
                const double noise = (weight[0][sb] * squared_scale(used[scfsi][0])
                                      + weight[1][sb] * squared_scale(used[scfsi][1])
                                      + weight[2][sb] * squared_scale(used[scfsi][2]))
                                     * tuned::selection_price[scfsi];
                best = noise < least ? scfsi : best;
                least = std::min(noise, least);
            }
            chosen.scfsi[ch][sb] = static_cast<std::uint8_t>(best);
            for (unsigned part = 0; part < 3; ++part)
                index[part][sb] = used[best][part];
        }
    }
}

void choose_shared_scalefactors(const weighed_frame &frame, const std::uint8_t (&joint_index)[3][32],
                                channel_scalefactors &chosen) noexcept {
    const coder_config &config = frame.config;
    double square[3][32], product[2][3][32], energy[2][3][32];
    for (int part = 0; part < config.parts(); ++part) {
        frame.kernels.sum_products(frame.joint[part], frame.joint[part], square[part]);
        for (int ch = 0; ch < 2; ++ch) {
            const part_samples &own = frame.samples[ch][part];
            frame.kernels.sum_products(own, frame.joint[part], product[ch][part]);
            frame.kernels.sum_products(own, own, energy[ch][part]);
        }
    }
    for (int ch = 0; ch < 2; ++ch) {
        for (int sb = joint_bounds[0]; sb < config.sblimit; ++sb) {
            shared_part parts[3] = {};
            for (int part = 0; part < config.parts(); ++part) {
                const double normal = inverse_scalefactor[joint_index[part][sb]];
                parts[part] = {frame.weights[ch][part][sb], energy[ch][part][sb],
                               product[ch][part][sb] * normal, square[part][sb] * (normal * normal)};
            }
            const selection best = choose_shared(parts, config.parts());
            chosen.scfsi[ch][sb] = best.scfsi;
            for (int part = 0; part < config.parts(); ++part)
                chosen.scalefactor[ch][part][sb] = best.index[part];
        }
    }
}

} // namespace vela
