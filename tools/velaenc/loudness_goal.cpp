#include "velaenc/loudness_goal.hpp"

#include "common/counted.hpp"

#include <algorithm>

namespace tools {
namespace {

std::string level_text(const std::optional<double> &value, const char *unit) {
    return value ? formatted("%.1f ", *value) + unit : "none";
}

} // namespace

programme_loudness reach_goal(const loudness_figures &input, const sound_options &wanted) {
    programme_loudness reached{input};
    if (!wanted.loudness || !input.integrated) return reached;
    reached.gain_db = *wanted.loudness - *input.integrated;
    const double most = wanted.true_peak - input.true_peak.value_or(wanted.true_peak);
    reached.limited_by_peak = input.true_peak && reached.gain_db > most;
    if (reached.limited_by_peak) reached.gain_db = most;
    auto &figures = reached.figures;
    for (auto *each :
         {&figures.integrated, &figures.momentary, &figures.short_term, &figures.true_peak})
        if (*each) **each += reached.gain_db;
    return reached;
}

std::string loudness_text(const programme_loudness &reached, const sound_options &wanted) {
    const loudness_figures &figures = reached.figures;
    std::string text = "loudness " + level_text(figures.integrated, "LUFS") + ", range "
                       + formatted("%.1f LU", figures.range) + ", momentary at most "
                       + level_text(figures.momentary, "LUFS") + ", short-term at most "
                       + level_text(figures.short_term, "LUFS") + ", true peak "
                       + level_text(figures.true_peak, "dBTP");
    if (!wanted.loudness) return text;
    if (!figures.integrated)
        return text + "; too quiet or too short to have a loudness, so its level stays";
    text += ", after a gain of " + formatted("%+.1f dB", reached.gain_db);
    if (reached.limited_by_peak)
        text += "; --true-peak " + formatted("%g", wanted.true_peak) + " keeps it below the "
                + formatted("%g LUFS", *wanted.loudness) + " of --loudness";
    return text;
}

} // namespace tools
