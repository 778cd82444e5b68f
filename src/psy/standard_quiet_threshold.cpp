#include "psy/standard_quiet_threshold.hpp"

#include "simd/const_math.hpp"

namespace vela {

namespace {

// The thresholds are those of ISO/IEC 11172-3 Table D.1, in dB to two decimals on a scale whose 96 dB are
// the energy `final_run`, in the units of the spectrum; above the table's last line nothing is audible.
// The table follows the formula below, so that it is computed. What a calculation in single precision
// makes of a few of its values stands as it is, because it is part of the stream.

/// 96 dB.
constexpr double final_run = 60776765194240.0;
/// 0 dB: final_run / 10^9.6.
constexpr long double energy_of_0_db = 15266.433184245481L;

/// The usual approximation of the threshold in quiet, f in kHz:
/// T(f) = 3.64 f^-0.8 - 6.5 exp(-0.6 (f - 3.3)^2) + 0.001 f^4 dB, rounded to 0.01 dB.
consteval long double threshold_db(long double f) {
    using namespace const_math;
    const long double db = 3.64L * power(f, -0.8L) - 6.5L * exponential(-0.6L * (f - 3.3L) * (f - 3.3L))
                           + 0.001L * f * f * f * f;
    const long double hundredths = db * 100 + (db < 0 ? -0.5L : 0.5L);
    return static_cast<long double>(static_cast<long long>(hundredths)) / 100;
}

/// Threshold of the run that ends before line `end`, taken at that upper edge.
consteval double run_threshold(int end, int sample_rate) {
    const long double f_khz =
        static_cast<long double>(end) * static_cast<long double>(sample_rate) / 1024 / 1000;
    return static_cast<double>(energy_of_0_db * const_math::power(10, threshold_db(f_khz) / 10));
}

/// Lines first .. end - 1. In single precision; the formula meets them to about 1e-6, except in the last
/// rising run, where the table ends at 68.00, 69.13 and 51.03 dB (48, 44.1 and 32 kHz).
struct fixed_run {
    int first, end;
    double value;
};

struct rate_rows {
    int sample_rate;
    int short_run;       ///< first line of a run of four among those of eight; -1 without one
    int last_rising_run; ///< first line of the run before the final one
    int final_line;      ///< first line of the final run
    table<fixed_run, 5> fixed;
};

consteval int run_length(const rate_rows &rows, int line) {
    if (line == rows.last_rising_run) return rows.final_line - line;
    if (line < 48) return 1;
    if (line < 96) return 2;
    if (line < 192 || line == rows.short_run) return 4;
    return 8;
}

/// The formula meets all fixed values but the last one.
consteval bool follows_formula(const rate_rows &rows) {
    for (const fixed_run &run : rows.fixed) {
        const double ratio =
            run.first < rows.last_rising_run ? run.value / run_threshold(run.end, rows.sample_rate) : 1;
        if (ratio < 1 - 2e-6 || ratio > 1 + 2e-6) return false;
    }
    return true;
}

consteval table<double, line_count> make_table(const rate_rows &rows) {
    table<double, line_count> made{};
    for (int line = 0; line < rows.final_line;) {
        const int end = line + run_length(rows, line);
        const double value = run_threshold(end, rows.sample_rate);
        for (; line < end; ++line)
            made[line] = value;
    }
    for (int line = rows.final_line; line < line_count; ++line)
        made[line] = final_run;
    for (const fixed_run &run : rows.fixed) {
        for (int line = run.first; line < run.end; ++line)
            made[line] = run.value;
    }
    return made;
}

constexpr rate_rows rows_48000{48000,
                               328,
                               332,
                               428,
                               {{{0, 1, 247592464.0},
                                 {1, 2, 3987838.75},
                                 {2, 3, 852584.69},
                                 {68, 70, 4849.95},
                                 {332, 428, 96324681728.0}}}};
constexpr rate_rows rows_44100{44100,
                               -1,
                               368,
                               464,
                               {{{0, 1, 488357088.0},
                                 {1, 2, 5898447.0},
                                 {2, 3, 1131716.5},
                                 {76, 78, 4849.95},
                                 {368, 464, 124950298624.0}}}};
constexpr rate_rows rows_32000{32000,
                               -1,
                               472,
                               480,
                               {{{0, 1, 10156347392.0},
                                 {1, 2, 33708348.0},
                                 {2, 3, 3987838.75},
                                 {104, 108, 4861.13},
                                 {472, 480, 1935251712.0}}}};

static_assert(follows_formula(rows_48000) && follows_formula(rows_44100)
              && follows_formula(rows_32000));

constexpr auto table_48000 = make_table(rows_48000), table_44100 = make_table(rows_44100),
               table_32000 = make_table(rows_32000);

} // namespace

const table<double, line_count> &quiet_threshold(int sample_rate) noexcept {
    switch (sample_rate) {
    case 32000:
        return table_32000;
    case 44100:
        return table_44100;
    default:
        return table_48000;
    }
}

} // namespace vela
