#include "coding/noise_ladder.hpp"

#include "coding/frame_bits.hpp"
#include "coding/scalefactor_table.hpp"

namespace vela {

namespace {

/// Keeps what infinite samples bring out of the search.
double finite(double cost) noexcept {
    return cost < 1e200 ? cost : 1e200;
}

part_scalefactors values_of(const std::uint8_t (&index)[32]) noexcept {
    part_scalefactors values;
    for (int sb = 0; sb < 32; ++sb) {
        values.value[sb] = scalefactor_table[index[sb]];
        values.inverse[sb] = inverse_scalefactor[index[sb]];
    }
    return values;
}

} // namespace

void ladder::build(const alloc_row &row, const noise_costs &costs, int sb, int opening_bits) noexcept {
    last_ = row.last;
    bits_[0] = 0;
    cost_[0] = finite(costs.unquantized[sb]);
    for (unsigned n = 1; n <= static_cast<unsigned>(last_); ++n) {
        bits_[n] = static_cast<std::int16_t>(opening_bits + row.sample_bits[n]);
        cost_[n] = finite(costs.quantized[row.classes[n]][sb]);
    }
    find_corners();
}

/// Indexes in order of bits; a corner goes again when the line from the one before it to a later index
/// runs below.
void ladder::find_corners() noexcept {
    int corner = 0;
    corner_[0] = 0;
    for (int n = 1; n <= last_; ++n) {
        if (cost_[n] >= cost_[corner_[corner]]) continue;
        double slope = 0;
        while (true) {
            const int from = corner_[corner];
            slope = (cost_[from] - cost_[n]) / (bits_[n] - bits_[from]);
            if (corner == 0 || slope < slope_[corner - 1]) break;
            --corner;
        }
        slope_[corner] = slope;
        corner_[++corner] = static_cast<std::uint8_t>(n);
    }
    slope_[corner] = 0;
}

ladder::step ladder::best_step(int from, int affordable) const noexcept {
    step best{0, from};
    for (int to = from + 1; to <= last_; ++to) {
        const int more = bits_[to] - bits_[from];
        const double slope = (cost_[from] - cost_[to]) / more;
        if (more <= affordable && slope > best.slope) best = {slope, to};
    }
    return best;
}

void frame_ladders::build_own(const weighed_frame &frame, const channel_scalefactors &used) noexcept {
    const coder_config &config = frame.config;
    for (int ch = 0; ch < config.channels; ++ch) {
        noise_costs costs{};
        for (int part = 0; part < config.parts(); ++part) {
            part_noise noise;
            frame.kernels.own_noise(frame.samples[ch][part], values_of(used.scalefactor[ch][part]),
                                    noise);
            frame.kernels.add_noise_costs(noise, frame.weights[ch][part], costs);
        }
        for (int sb = 0; sb < config.sblimit; ++sb)
            own[ch][sb].build(config.table->row(sb), costs, sb, side_bits(config, used, ch, sb));
    }
}

void frame_ladders::build_shared(const weighed_frame &frame, const channel_scalefactors &used,
                                 const std::uint8_t (&joint_index)[3][32]) noexcept {
    const coder_config &config = frame.config;
    noise_costs costs{};
    for (int part = 0; part < config.parts(); ++part) {
        const part_scalefactors common = values_of(joint_index[part]);
        for (int ch = 0; ch < 2; ++ch) {
            part_noise noise;
            frame.kernels.shared_noise(frame.samples[ch][part], values_of(used.scalefactor[ch][part]),
                                       frame.joint[part], common, noise);
            frame.kernels.add_noise_costs(noise, frame.weights[ch][part], costs);
        }
    }
    for (int sb = joint_bounds[0]; sb < config.sblimit; ++sb) {
        const int opening = side_bits(config, used, 0, sb) + side_bits(config, used, 1, sb);
        shared[sb].build(config.table->row(sb), costs, sb, opening);
    }
}

} // namespace vela
