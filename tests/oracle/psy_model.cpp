#include "analysis/window_table.hpp"
#include "oracle/steps.hpp"
#include "psy/standard_quiet_threshold.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <utility>
#include <vector>

namespace oracle {
namespace {

using std::numbers::pi;
using complex = std::complex<double>;

double bark_of(double hz) {
    static constexpr double edges[27] = {0,    100,  200,  300,  400,  510,   630,   770,   920,
                                         1080, 1270, 1480, 1720, 2000, 2320,  2700,  3150,  3700,
                                         4400, 5300, 6400, 7700, 9500, 12000, 15500, 25000, 30000};
    int j = 1;
    while (hz > edges[j])
        ++j;
    return j - 1 + (hz - edges[j - 1]) / (edges[j] - edges[j - 1]);
}

/// Powers of exp(-2 i pi / 1024).
const std::vector<complex> roots = [] {
    std::vector<complex> w;
    for (int i = 0; i < 1024; ++i)
        w.push_back(std::polar(1.0, -2 * pi * i / 1024));
    return w;
}();

double spreading(double maskee, double masker) {
    const double x = 1.05 * (maskee - masker);
    const double t = x >= 0.5 && x <= 2.5 ? 8 * ((x - 0.5) * (x - 0.5) - 2 * (x - 0.5)) : 0;
    const double s = 15.811389 + 7.5 * (x + 0.474) - 17.5 * std::sqrt(1 + (x + 0.474) * (x + 0.474));
    return s <= -100 ? 0 : std::exp(0.2302585093 * (t + s));
}

/// Unpredictability of a line from its value and the two passes before. The two real lines count as
/// (1 + i) / 2 of their value in the direction and in full in the magnitude.
double unpredictability(int line, complex x, complex x1, complex x2) {
    const bool real = line % 512 == 0;
    const complex turn = real ? complex(0.5, 0.5) : 1.0;
    const double r = std::abs(x), r1 = std::abs(x1), r2 = std::abs(x2);
    const double shrunk = real ? (r1 == 0 ? 1 : 0.5) * (r2 == 0 ? 1 : std::sqrt(0.5)) : 1;
    const double predicted = 2 * r1 - r2, phase = 2 * std::arg(turn * x1) - std::arg(turn * x2);
    if (r + std::abs(predicted) == 0) return 0;
    return std::abs(turn * x - std::polar(shrunk, phase) * predicted) / (r + std::abs(predicted));
}

} // namespace

void analyze(const float *newest, double (&subbands)[32]) {
    double y[64] = {};
    for (int i = 0; i < 512; ++i)
        y[i % 64] += static_cast<double>(vela::printed_window(i)) * 1e-9 * newest[-i] / 32768;
    for (int i = 0; i < 32; ++i) {
        subbands[i] = 0;
        // cos((2 i + 1) (k - 16) pi / 64)
        for (int k = 0; k < 64; ++k)
            subbands[i] += roots[(2 * i + 1) * (k + 112) * 8 & 1023].real() * y[k];
    }
}

psy_model::psy_model(int layer, int rate) : layer_(layer), rate_(rate) {
    double lowest = 0;
    for (int line = 0; line <= 512; ++line) {
        const double bark = bark_of(line * (rate / 1024.0));
        if (bark - lowest > 0.33) {
            ++partitions_;
            lowest = bark;
        }
        partition_of_line_[line] = partitions_ - 1;
        bark_[partitions_ - 1] += bark;
        ++lines_of_partition_[partitions_ - 1];
    }
    for (int b = 0; b < partitions_; ++b)
        bark_[b] /= lines_of_partition_[b];
    for (int i = 0; i < rows * rows; ++i)
        spreading_[i / rows][i % rows] = spreading(bark_[i / rows], bark_[i % rows]);
    for (channel_state &channel : channels_)
        std::fill_n(channel.limit, 513, 60802371420160.0);
}

void psy_model::mask(const double (&energy)[513], const double (&c)[513],
                     double (&threshold)[513]) const {
    double eb[rows] = {}, cb[rows] = {}, mask[rows];
    for (int line = 0; line <= 512; ++line) {
        eb[partition_of_line_[line]] += energy[line];
        cb[partition_of_line_[line]] += energy[line] * c[line];
    }
    for (int b = 0; b < partitions_; ++b) {
        double row_sum = 0, ecb = 0, ct = 0;
        // The convolution covers the first unbroken run of the row, the normalisation all of it.
        for (int k = 0, changes = 0; k < rows; ++k) {
            const double gain = spreading_[b][k];
            changes += (gain != 0) != (changes % 2 == 1);
            row_sum += gain;
            if (changes != 1) continue;
            ecb += eb[k] * gain;
            ct += cb[k] * gain;
        }
        const double cbb = ecb == 0 ? 0 : ct / ecb;
        const double tb = -0.434294482 * std::log(std::clamp(cbb, 0.05, 0.5)) - 0.301029996;
        static constexpr double least_offset[] = {20, 20, 20, 20, 20, 17, 15, 10, 7, 4.4};
        const auto zone = static_cast<int>(std::floor(bark_[b] + 0.5));
        const double offset = std::max(std::max(bark_[b] + 15.5, 24.5) * tb + 5.5 * (1 - tb),
                                       zone < 10   ? least_offset[zone]
                                       : zone < 24 ? 4.5
                                                   : 3.5);
        mask[b] = ecb / (lines_of_partition_[b] * row_sum) * std::exp(-0.2302585093 * offset);
    }
    for (unsigned line = 0; line <= 512; ++line)
        threshold[line] = std::max(vela::quiet_threshold(rate_)[line], mask[partition_of_line_[line]]);
}

void psy_model::pass(const float *samples, channel_state &channel, double (&ratio)[32]) {
    double hann[1024], energy[513], c[513], threshold[513];
    for (int i = 0; i < 1024; ++i)
        hann[i] = 0.5 * (1 - std::cos(2 * pi * (i - 0.5) / 1024)) * samples[i];
    for (int k = 0; k <= 512; ++k) {
        complex x = 0;
        for (int i = 0; i < 1024; ++i)
            x += hann[i] * roots[i * k & 1023];
        energy[k] = std::norm(x);
        c[k] = unpredictability(k, x, channel.before[k], channel.two_before[k]);
        channel.two_before[k] = std::exchange(channel.before[k], x);
    }
    mask(energy, c, threshold);
    for (int line = 0; line <= 512; ++line) {
        const double t = threshold[line];
        if (layer_ == 1) threshold[line] = std::max(0.00316 * t, std::min(t, channel.limit[line]));
        channel.limit[line] = 32 * t;
    }
    for (int sb = 0; sb < 32; ++sb) {
        const double *const first = threshold + 16 * sb;
        const double least = std::min(60802371420160.0, *std::min_element(first, first + 17));
        const double t = sb <= 12 ? 17 * least : std::accumulate(first, first + 17, 0.0);
        const double e = std::accumulate(energy + 16 * sb, energy + 16 * sb + 17, 0.0);
        ratio[sb] = 4.342944819 * std::log(std::max(0.5, e) / t);
    }
}

void psy_model::analyze(const float *frame_start, int channel, double (&smr)[32]) {
    pass(frame_start - (layer_ == 1 ? 640 : 448), channels_[channel], smr);
    if (layer_ == 1) return;
    double second[32];
    pass(frame_start + 128, channels_[channel], second);
    for (int sb = 0; sb < 32; ++sb)
        smr[sb] = std::max(smr[sb], second[sb]);
}

} // namespace oracle
