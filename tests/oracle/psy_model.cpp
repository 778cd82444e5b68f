#include "oracle/psy_model.hpp"

#include "psy/quiet_threshold.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <utility>

namespace oracle {

namespace {

/// The spreading matrix has this many rows and columns at every rate; the rows without lines sit at 0
/// bark.
constexpr int rows = 63;

unsigned at(int i) {
    return static_cast<unsigned>(i);
}

double bark_of(double hz) {
    static constexpr double edges[27] = {0,    100,  200,  300,  400,  510,   630,   770,   920,
                                         1080, 1270, 1480, 1720, 2000, 2320,  2700,  3150,  3700,
                                         4400, 5300, 6400, 7700, 9500, 12000, 15500, 25000, 30000};
    int j = 1;
    while (hz > edges[j])
        ++j;
    return j - 1 + (hz - edges[j - 1]) / (edges[j] - edges[j - 1]);
}

/// |X| and phase of the lines of the Hann-windowed block.
std::vector<std::complex<double>> transform(const float *samples) {
    using std::numbers::pi;
    static const auto roots = [] {
        std::vector<std::complex<double>> w(1024);
        for (int i = 0; i < 1024; ++i)
            w[at(i)] = std::polar(1.0, -2 * pi * i / 1024);
        return w;
    }();
    std::vector<std::complex<double>> x(513);
    for (int i = 0; i < 1024; ++i) {
        const double hann = 0.5 * (1 - std::cos(2 * pi * (i - 0.5) / 1024));
        const double sample = hann * static_cast<double>(samples[i]);
        for (int k = 0; k <= 512; ++k)
            x[at(k)] += sample * roots[at(i * k % 1024)];
    }
    return x;
}

/// Unpredictability of a line from its value and the two passes before. The two real lines count as
/// (1 + i) / 2 of their value in the direction and in full in the magnitude.
double unpredictability(int line, std::complex<double> x, std::complex<double> x1,
                        std::complex<double> x2) {
    const bool real = line % 512 == 0;
    const std::complex<double> turn = real ? std::complex<double>(0.5, 0.5) : 1.0;
    const double r = std::abs(x), r1 = std::abs(x1), r2 = std::abs(x2);
    const double shrunk = real ? (r1 == 0 ? 1 : 0.5) * (r2 == 0 ? 1 : std::sqrt(0.5)) : 1;
    const double predicted = 2 * r1 - r2, phase = 2 * std::arg(turn * x1) - std::arg(turn * x2);
    if (r + std::abs(predicted) == 0) return 0;
    return std::abs(turn * x - std::polar(shrunk, phase) * predicted) / (r + std::abs(predicted));
}

} // namespace

psy_model::psy_model(int layer, int rate) : layer_(layer), rate_(rate) {
    lay_partitions();
}

void psy_model::lay_partitions() {
    double lowest = 0, sum = 0;
    lines_of_partition_.push_back(0);
    for (int line = 0; line <= 512; ++line) {
        const double bark = bark_of(line * (rate_ / 1024.0));
        if (bark - lowest > 0.33) {
            mean_bark_.push_back(sum / lines_of_partition_.back());
            lines_of_partition_.push_back(0);
            lowest = bark;
            sum = 0;
        }
        sum += bark;
        ++lines_of_partition_.back();
        partition_of_line_.push_back(static_cast<int>(lines_of_partition_.size()) - 1);
    }
    mean_bark_.push_back(sum / lines_of_partition_.back());
}

double psy_model::spreading(int maskee, int masker) const {
    const auto bark = [this](int p) { return p < partitions() ? mean_bark_[at(p)] : 0.0; };
    const double x = 1.05 * (bark(maskee) - bark(masker));
    const double t = x >= 0.5 && x <= 2.5 ? 8 * ((x - 0.5) * (x - 0.5) - 2 * (x - 0.5)) : 0;
    const double s = 15.811389 + 7.5 * (x + 0.474) - 17.5 * std::sqrt(1 + (x + 0.474) * (x + 0.474));
    return s <= -100 ? 0 : std::exp(0.2302585093 * (t + s));
}

std::vector<double> psy_model::masks(const std::vector<double> &energy,
                                     const std::vector<double> &c) const {
    static constexpr double least_offset[27] = {20,  20,  20,  20,  20,  17,  15,  10,  7,
                                                4.4, 4.5, 4.5, 4.5, 4.5, 4.5, 4.5, 4.5, 4.5,
                                                4.5, 4.5, 4.5, 4.5, 4.5, 4.5, 3.5, 3.5, 3.5};
    std::vector<double> eb(rows), cb(rows), mask;
    for (int line = 0; line <= 512; ++line) {
        eb[at(partition_of_line_[at(line)])] += energy[at(line)];
        cb[at(partition_of_line_[at(line)])] += energy[at(line)] * c[at(line)];
    }
    for (int b = 0; b < partitions(); ++b) {
        double row_sum = 0, ecb = 0, ct = 0;
        // The convolution covers the first unbroken run of the row, the normalisation all of it.
        enum { before, inside, behind } run = before;
        for (int k = 0; k < rows; ++k) {
            const double gain = spreading(b, k);
            if (run == before && gain != 0) run = inside;
            if (run == inside && gain == 0) run = behind;
            row_sum += gain;
            if (run != inside) continue;
            ecb += eb[at(k)] * gain;
            ct += cb[at(k)] * gain;
        }
        const double cbb = ecb == 0 ? 0 : ct / ecb;
        const double tb = -0.434294482 * std::log(std::clamp(cbb, 0.05, 0.5)) - 0.301029996;
        const double bark = mean_bark_[at(b)];
        const double offset = std::max(std::max(bark + 15.5, 24.5) * tb + 5.5 * (1 - tb),
                                       least_offset[static_cast<int>(std::floor(bark + 0.5))]);
        mask.push_back(ecb / (lines_of_partition_[at(b)] * row_sum) * std::exp(-0.2302585093 * offset));
    }
    return mask;
}

void psy_model::pass(const float *samples, channel_state &channel, double (&ratio)[32]) {
    const auto x = transform(samples);
    std::vector<double> energy(513), c(513), threshold(513);
    for (int line = 0; line <= 512; ++line) {
        energy[at(line)] = std::norm(x[at(line)]);
        c[at(line)] =
            unpredictability(line, x[at(line)], channel.before[at(line)], channel.two_before[at(line)]);
    }
    channel.two_before = std::exchange(channel.before, x);
    const auto mask = masks(energy, c);
    for (int line = 0; line <= 512; ++line) {
        const double t =
            std::max(vela::quiet_threshold(rate_)[at(line)], mask[at(partition_of_line_[at(line)])]);
        threshold[at(line)] =
            layer_ == 1 ? std::max(0.00316 * t, std::min(t, channel.limit[at(line)])) : t;
        channel.limit[at(line)] = 32 * t;
    }
    for (int sb = 0; sb < 32; ++sb) {
        const auto sum = [sb](const std::vector<double> &v) {
            return std::accumulate(v.begin() + 16 * sb, v.begin() + 16 * sb + 17, 0.0);
        };
        const auto first = threshold.begin() + 16 * sb;
        const double t = sb <= 12
                             ? 17 * std::min(60802371420160.0, *std::min_element(first, first + 17))
                             : sum(threshold);
        ratio[sb] = 4.342944819 * std::log(std::max(0.5, sum(energy)) / t);
    }
}

void psy_model::analyze(const float *frame_start, int channel, double (&smr)[32]) {
    if (layer_ == 1) {
        pass(frame_start - 640, channels_[channel], smr);
        return;
    }
    double second[32];
    pass(frame_start - 448, channels_[channel], smr);
    pass(frame_start + 128, channels_[channel], second);
    for (int sb = 0; sb < 32; ++sb)
        smr[sb] = std::max(smr[sb], second[sb]);
}

} // namespace oracle
