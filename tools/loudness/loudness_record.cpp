#include "loudness/loudness_record.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>

namespace tools {
namespace {

/// ITU-R BS.1770-4, formula 2. The constant takes out the weighting's gain at 997 Hz.
double lufs(double energy) {
    return -0.691 + 10 * std::log10(energy);
}

double energy_at(double loudness) {
    return std::pow(10, (loudness + 0.691) / 10);
}

constexpr std::size_t momentary_steps = 40, short_term_steps = 300; ///< 400 ms and 3 s
constexpr std::size_t gating_steps = 10; ///< blocks of both lengths are gated every 100 ms

/// Mean energies of the windows of so many steps that begin every so many steps.
std::vector<double> window_energies(const std::vector<float> &steps, std::size_t length,
                                    std::size_t every) {
    std::vector<double> sums(steps.size() + 1); // of all steps before
    std::partial_sum(steps.begin(), steps.end(), sums.begin() + 1, std::plus<double>());
    std::vector<double> windows;
    for (std::size_t end = length; end < sums.size(); end += every)
        windows.push_back((sums[end] - sums[end - length]) / static_cast<double>(length));
    return windows;
}

double mean_of(const std::vector<double> &values) {
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

/// What is left above -70 LUFS, and then above so many LU below the mean of that.
std::vector<double> gated(std::vector<double> energies, double relative) {
    std::erase_if(energies, [gate = energy_at(-70)](double energy) { return energy < gate; });
    if (energies.empty()) return energies;
    const double gate = mean_of(energies) * std::pow(10, relative / 10);
    std::erase_if(energies, [gate](double energy) { return energy < gate; });
    return energies;
}

/// EBU Tech 3342: from the 10th to the 95th percentile of the short-term loudness.
double range_of(std::vector<double> energies) {
    if (energies.empty()) return 0;
    std::ranges::sort(energies);
    const auto percentile = [&](double share) {
        return energies[static_cast<std::size_t>(
            std::lround(share * static_cast<double>(energies.size() - 1)))];
    };
    return lufs(percentile(0.95)) - lufs(percentile(0.10));
}

std::optional<double> greatest(const std::vector<double> &energies) {
    const auto largest = std::ranges::max_element(energies);
    if (largest == energies.end() || *largest <= 0) return std::nullopt;
    return lufs(*largest);
}

} // namespace

void loudness_record::append(const loudness_record &next) {
    energy.insert(energy.end(), next.energy.begin(), next.energy.end());
    peak = std::max(peak, next.peak);
}

loudness_figures loudness_record::figures() const {
    loudness_figures result;
    const auto loud = gated(window_energies(energy, momentary_steps, gating_steps), -10);
    if (!loud.empty()) result.integrated = lufs(mean_of(loud));
    result.range = range_of(gated(window_energies(energy, short_term_steps, gating_steps), -20));
    result.momentary = greatest(window_energies(energy, momentary_steps, 1));
    result.short_term = greatest(window_energies(energy, short_term_steps, 1));
    if (peak > 0) result.true_peak = 20 * std::log10(peak);
    return result;
}

} // namespace tools
