#include "velaenc/check_text.hpp"

#include "common/counted.hpp"
#include "jobs/progress.hpp"

#include <cmath>

namespace tools {

std::optional<std::size_t> least_second(const check_result &checked) {
    std::optional<std::size_t> least;
    for (std::size_t i = 0; i < checked.count(); ++i)
        if (const auto ratio = checked.second(i))
            if (!least || *ratio < *checked.second(*least)) least = i;
    return least;
}

double excess_of(const check_result &checked) {
    const double peak = checked.overs.peak;
    constexpr double other_rounding = 0.3; // softer sound is coded with other errors
    return peak > 1 ? std::ceil(10 * (20 * std::log10(peak) + other_rounding)) / 10 : 0;
}

std::string check_text(const check_result &checked) {
    std::string text = "checked: libmpg123 decodes every frame";
    if (const auto whole = checked.whole())
        text += formatted(", signal-to-noise ratio %.1f dB", *whole);
    if (const auto least = least_second(checked))
        text += formatted(", at least %.1f dB", *checked.second(*least)) + " (at "
                + clock_text(static_cast<double>(*least), 0) + ")";
    return text;
}

std::string overs_text(const check_result &checked, const sound_options &encoded,
                       const std::optional<programme_loudness> &loudness) {
    const double excess = excess_of(checked);
    // --loudness sets the gain; what it heeds is the true peak.
    const bool by_peak = encoded.loudness && loudness && loudness->figures.integrated;
    const double most =
        by_peak ? std::floor(10 * loudness->figures.true_peak.value()) / 10 : encoded.gain_db;
    return counted(checked.overs.samples, "decoded sample")
           + (checked.overs.samples == 1 ? " lies" : " lie") + " beyond full scale, by up to "
           + formatted("%.1f dB", 20 * std::log10(checked.overs.peak))
           + "; players will clip them, unless " + (by_peak ? "--true-peak " : "--gain ")
           + formatted("%.1f", most - excess) + " lowers all";
}

} // namespace tools
