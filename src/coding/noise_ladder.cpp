#include "coding/noise_ladder.hpp"

namespace vela {

namespace {

/// Keeps what infinite samples bring out of the search.
double finite(double cost) noexcept {
    return cost < 1e200 ? cost : 1e200;
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

} // namespace vela
