#include "velaenc/loudness_goal.hpp"

#include "common/counted.hpp"
#include "common/failure.hpp"

#include <algorithm>
#include <cmath>

namespace tools {
namespace {

/// A gain has two digits behind the point: as many as the report shows, and few enough that it does not depend on
/// how a machine rounds its logarithms.
constexpr double gain_steps = 100;

std::string level_text(const std::optional<double> &value, const char *unit) {
    if (!value) return "none";
    return std::isfinite(*value) ? formatted("%.1f ", *value) + unit : "beyond measure";
}

} // namespace

programme_loudness reach_goal(const loudness_figures &input, const sound_options &wanted) {
    programme_loudness reached{input};
    if (!wanted.loudness || !input.integrated) return reached;
    const double peak = input.true_peak.value(); // of sound that has a loudness
    if (!std::isfinite(*input.integrated) || !std::isfinite(peak))
        throw failure(
            exit_code::input,
            "the input has samples that are infinite or far beyond any scale, so that its loudness"
            " cannot be measured; repair them, or leave --loudness out");
    reached.gain_db = std::round((*wanted.loudness - *input.integrated) * gain_steps) / gain_steps;
    const double most = std::floor((wanted.true_peak - peak) * gain_steps) / gain_steps;
    reached.limited_by_peak = reached.gain_db > most;
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
