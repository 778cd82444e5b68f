#include "psy/standard_tables.hpp"

#include "psy/standard_constants.hpp"
#include "psy/standard_quiet_threshold.hpp"
#include "simd/math.hpp"

#include <algorithm>
#include <cmath>

namespace vela {

namespace {

/// Least masking offset in dB by rounded bark value.
constexpr table<double, 27> min_offset_by_bark{20,  20,  20,  20,  20,  17,  15,  10,  7,
                                               4.4, 4.5, 4.5, 4.5, 4.5, 4.5, 4.5, 4.5, 4.5,
                                               4.5, 4.5, 4.5, 4.5, 4.5, 4.5, 3.5, 3.5, 3.5};

/// Gain of the spreading function from a masker to a maskee at the given bark values.
double spreading_gain(double maskee, double masker) noexcept {
    const double x = (maskee - masker) * 1.05;
    const double u = x - 0.5;
    const double t = x >= 0.5 && x <= 2.5 ? 8 * (u * u - 2 * u) : 0;
    const double y = x + 0.474;
    const double s = 15.811389 + 7.5 * y - 17.5 * std::sqrt(1 + y * y);
    return s <= -100 ? 0 : VELA_LEVEL::exponential(ln10_by_10 * (t + s));
}

/// Cuts the lines after each partition's last one and after lines 16, 32, ... 512, where a subband ends
/// (and where the next one has its first line).
void lay_runs(standard_tables &tables) noexcept {
    tables.run_count = 0;
    int subband = 0;
    for (int line = 0; line < line_count; ++line) {
        const int partition = tables.of_line[line];
        const bool closes_partition = line + 1 == tables.first_line[partition + 1];
        const bool closes_subband = line == 16 * (subband + 1);
        if (!closes_partition && !closes_subband) continue;
        tables.run_list[tables.run_count++] = {line + 1, partition, subband, closes_partition,
                                               closes_subband};
        subband += closes_subband;
    }
}

/// Fills the maskee's column of the spreading matrix; returns the sum of its whole row, gains outside
/// the run included.
double lay_spreading(standard_tables &tables, const table<double, partition_count> &bark,
                     int maskee) noexcept {
    double sum = 0;
    bool before_run = true, in_run = false;
    int &group_first = tables.first_masker[maskee / spreading_group];
    int &group_end = tables.end_masker[maskee / spreading_group];
    for (int masker = 0; masker < partition_count; ++masker) {
        const double gain = spreading_gain(bark[maskee], bark[masker]);
        sum += gain;
        if (before_run && gain != 0) {
            before_run = false;
            in_run = true;
        } else if (gain == 0) {
            in_run = false;
        }
        if (!in_run) continue;
        tables.spreading[maskee / spreading_group][masker][maskee % spreading_group] = gain;
        group_first = std::min(group_first, masker);
        group_end = std::max(group_end, masker + 1);
    }
    return sum;
}

} // namespace

void make_standard_tables(standard_tables &tables, int sample_rate) noexcept {
    const auto bark = lay_partitions(tables, sample_rate);
    lay_runs(tables);
    tables.spreading = {};
    tables.quiet = quiet_threshold(sample_rate).begin();
    std::ranges::fill(tables.first_masker, partition_count);
    std::ranges::fill(tables.end_masker, 0);
    std::ranges::fill(tables.tone_masking, 24.5);
    std::ranges::fill(tables.min_offset, 0);
    std::ranges::fill(tables.spread_norm, 1);
    for (int p = 0; p < partition_count; ++p) {
        tables.tone_masking[p] = std::max(bark[p] + 15.5, 24.5);
        tables.min_offset[p] = min_offset_by_bark[static_cast<int>(bark[p] + 0.5)];
        const double row_sum = lay_spreading(tables, bark, p);
        const int lines = tables.first_line[p + 1] - tables.first_line[p];
        if (lines > 0) tables.spread_norm[p] = lines * row_sum;
    }
}

} // namespace vela
