// The tuned model as docs/sound.md words it.
#include "oracle/tuned.hpp"
#include "psy/partitions.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace oracle {
namespace {

using std::numbers::pi;

double bark(double hz) {
    return 7 * std::asinh(hz / 650);
}
double from_db(double db) {
    return std::pow(10, db / 10);
}

/// Energies of the lines of a window of 1024 samples.
std::vector<double> spectrum(const float *samples) {
    std::vector<std::complex<double>> x(1024), turns(1024);
    for (int i = 0; i < 1024; ++i) {
        x[i] = samples[i] * 0.5 * (1 - std::cos((i - 0.5) * 2 * pi / 1024));
        turns[i] = std::polar(1.0, -2 * pi * i / 1024);
    }
    std::vector<double> energy(513);
    for (int k = 0; k <= 512; ++k) {
        std::complex<double> sum;
        for (int i = 0; i < 1024; ++i)
            sum += x[i] * turns[i * k % 1024];
        energy[k] = std::norm(sum);
    }
    return energy;
}

} // namespace

tuned_model::tuned_model(int layer, int rate)
    : layer_(layer), df_(rate / 1024.0),
      fading_(std::pow(0.35, (layer == 1 ? 384 : 576) / 0.012 / rate)) {
    vela::partition_lines lines;
    vela::lay_partitions(lines, rate); // those of the standard's model, which other tests check
    for (int k = 0; k <= 512; ++k) {
        of_line_.push_back(lines.of_line[k]);
        dz_.push_back(bark((k + 0.5) * df_) - bark(std::max(0.0, (k - 0.5) * df_)));
    }
    count_ = of_line_[512] + 1;
    std::vector<double> flat(513);
    for (int k = 0; k <= 512; ++k)
        flat[k] = dz_[k];
    norm_.assign(count_, 1);
    const std::vector<double> heard = excitation(flat);
    for (int p = 0; p < count_; ++p)
        norm_[p] = std::sqrt(sum_of(flat, p) / heard[p]);
}

void tuned_model::pass(const float *samples, double (&weights)[32]) {
    const std::vector<double> now = excitation(spectrum(samples));
    before_.insert(before_.begin(), now);
    std::vector<double> factor(count_);
    for (int p = 0; p < count_; ++p)
        factor[p] =
            std::pow(1 / threshold(p, masking(p)) + 0.00015 / threshold(p, quietest_before(p)), 0.95);
    for (int sb = 0; sb < 32; ++sb) {
        weights[sb] = 0;
        for (int k = 0; k <= 512; ++k) {
            const double d = std::abs(k - 16 * sb - 8) / 16.0;
            if (d < 1) weights[sb] += std::pow(std::cos(pi * d / 2), 2) * dz_[k] * factor[of_line_[k]];
        }
    }
}

double tuned_model::sum_of(const std::vector<double> &lines, int p) const {
    double sum = 0;
    for (int k = 0; k <= 512; ++k)
        sum += of_line_[k] == p ? lines[k] : 0;
    return sum;
}
double tuned_model::middle(int p) const {
    const auto [first, end] = std::equal_range(of_line_.begin(), of_line_.end(), p);
    const auto twice = static_cast<double>((first - of_line_.begin()) + (end - of_line_.begin()) - 1);
    return bark(twice / 2 * df_);
}
/// Every partition hears every other one's amplitude.
std::vector<double> tuned_model::excitation(const std::vector<double> &energy) const {
    std::vector<double> heard(count_), sums(count_);
    for (int p = 0; p < count_; ++p)
        sums[p] = sum_of(energy, p);
    for (int p = 0; p < count_; ++p) {
        double amplitude = 0;
        for (int q = 0; q < count_; ++q) {
            const double distance = middle(p) - middle(q);
            const double slope = distance >= 0 ? -10 * distance : 27 * distance;
            amplitude += std::sqrt(sums[q] * from_db(slope));
        }
        heard[p] = std::pow(amplitude * norm_[p], 2);
    }
    return heard;
}
double tuned_model::masking(int p) const {
    double masking = 0;
    for (std::size_t i = 0; i < std::min<std::size_t>(3, before_.size()); ++i)
        masking = std::max(masking, std::pow(fading_, i) * before_[i][p]);
    return masking;
}
double tuned_model::quietest_before(int p) const {
    return before_.size() < 3 ? 0 : std::min(before_[1][p], before_[2][p]);
}
double tuned_model::threshold(int p, double masking) const {
    double inverse = 0, lines = 0;
    for (int k = 0; k <= 512; ++k) {
        if (of_line_[k] != p) continue;
        const double f = std::max(k, 1) * df_ / 1000;
        const double db = 3.64 * std::pow(f, -0.8) - 6.5 * std::exp(-0.6 * (f - 3.3) * (f - 3.3))
                          + 0.001 * std::pow(f, 3.65) + 3;
        inverse += 1 / (15266.4 * from_db(db) * dz_[k] / 0.25);
        ++lines;
    }
    return masking * from_db(-3 - 0.25 * std::max(0.0, middle(p) - 12)) / lines + lines / inverse;
}

void tuned_model::analyze(const float *frame_start, double (&weights)[3][32]) {
    pass(frame_start - (layer_ == 1 ? 640 : 448), weights[0]);
    if (layer_ == 1) return;
    pass(frame_start + 128, weights[2]);
    for (int sb = 0; sb < 32; ++sb)
        weights[1][sb] = (weights[0][sb] + weights[2][sb]) / 2;
}

} // namespace oracle
