#include "psy/tuned_tables.hpp"

#include "psy/tuned_parameters.hpp"
#include "simd/const_math.hpp"
#include "simd/math.hpp"

#include <algorithm>
#include <cmath>

namespace vela {

namespace {

double power(double base, double exponent) noexcept {
    return VELA_LEVEL::exponential(exponent * VELA_LEVEL::logarithm(base));
}

/// The factor of a level in dB on energies.
double from_db(double db) noexcept {
    return VELA_LEVEL::exponential(0.23025850929940457 * db);
}

double schroeder_bark(double hz) noexcept {
    const double x = hz / 650;
    return 7 * VELA_LEVEL::logarithm(x + std::sqrt(x * x + 1));
}

/// Threshold in quiet as an energy a Bark.
double quiet_energy(double khz) noexcept {
    const double from_dip = khz - 3.3;
    const double db = 3.64 * power(khz, -0.8)
                      - 6.5 * VELA_LEVEL::exponential(-0.6 * from_dip * from_dip)
                      + 0.001 * power(khz, tuned::quiet_exponent);
    return tuned::quiet_at_0_db * from_db(db + tuned::quiet_allowance_db) / tuned::quiet_width;
}

/// cos^2(pi d / 2) for d = |i - 15| / 16: how the filterbank spreads a subband's noise over the lines
/// 16 sb - 7 .. 16 sb + 23.
constexpr table<double, 31> band_shape = [] {
    table<double, 31> shape{};
    for (int i = 0; i < 31; ++i) {
        const double c = const_math::cosine((i - 15) * 3.141592653589793 / 32);
        shape[i] = c * c;
    }
    return shape;
}();

using line_widths = table<double, line_count>;

line_widths widths_of_lines(double line_hz) noexcept {
    line_widths widths{};
    for (int k = 0; k < line_count; ++k)
        widths[k] =
            schroeder_bark((k + 0.5) * line_hz) - schroeder_bark(std::max(0.0, (k - 0.5) * line_hz));
    return widths;
}

/// An excitation and what it is scaled by so that energies of equal density stay as they are.
void lay_spreading(tuned_tables &tables, const table<double, padded_partitions> &middle,
                   const table<double, padded_partitions> &width, int count) noexcept {
    double heard[padded_partitions] = {};
    double upward = 0, downward = 0;
    for (int p = 0; p < count; ++p) {
        if (p > 0) tables.upward[p] = from_db(-tuned::upward_slope / 2 * (middle[p] - middle[p - 1]));
        upward = std::sqrt(width[p]) + upward * tables.upward[p];
        heard[p] = upward;
    }
    for (int p = count - 2; p >= 0; --p) {
        tables.downward[p] = from_db(-tuned::downward_slope / 2 * (middle[p + 1] - middle[p]));
        downward = (std::sqrt(width[p + 1]) + downward) * tables.downward[p];
        heard[p] += downward;
    }
    for (int p = 0; p < count; ++p)
        tables.spread_scale[p] = std::sqrt(width[p]) / heard[p];
}

void lay_subbands(tuned_tables &tables, const line_widths &widths) noexcept {
    int next = 0;
    for (int sb = 0; sb < 32; ++sb) {
        const int first = std::max(16 * sb - 7, 0), end = std::min(16 * sb + 24, line_count);
        const int base = tables.partitions.of_line[first];
        for (int k = first; k < end; ++k) {
            tables.heard_share[next + tables.partitions.of_line[k] - base] +=
                band_shape[k - 16 * sb + 7] * widths[k];
        }
        tables.first_heard[sb] = base;
        tables.end_heard[sb] = tables.partitions.of_line[end - 1] + 1;
        next += tables.end_heard[sb] - base;
    }
}

} // namespace

void make_tuned_tables(tuned_tables &tables, int sample_rate, int step) noexcept {
    tables = {};
    std::ranges::fill(tables.quiet, 1); // of partitions without lines, which nobody hears
    lay_partitions(tables.partitions, sample_rate);
    const double line_hz = sample_rate * 0.0009765625;
    const line_widths widths = widths_of_lines(line_hz);
    table<double, padded_partitions> middle{}, width{};
    const auto &first_line = tables.partitions.first_line;
    int count = 0;
    for (; count < partition_count && first_line[count] < line_count; ++count) {
        const int p = count, first = first_line[p], end = first_line[p + 1];
        double inverse_quiet = 0; // line 0 has the threshold of line 1
        for (int k = first; k < end; ++k) {
            width[p] += widths[k];
            inverse_quiet += 1 / (quiet_energy(std::max(k, 1) * line_hz / 1000) * widths[k]);
        }
        middle[p] = schroeder_bark((first + end - 1) * 0.5 * line_hz);
        tables.quiet[p] = (end - first) / inverse_quiet;
        tables.mask_share[p] =
            from_db(-tuned::offset_db
                    - tuned::offset_slope * std::max(0.0, middle[p] - tuned::offset_from_bark))
            / (end - first);
    }
    lay_spreading(tables, middle, width, count);
    lay_subbands(tables, widths);
    tables.fading = power(tuned::fading_a_pass, step / 0.012 / sample_rate);
}

} // namespace vela
