// The tuned model against its steps written out, at every level.
#include "host/encoding.hpp"
#include "host/signals.hpp"
#include "psy/tuned_model.hpp"

#include <cmath>
#include <complex>
#include <gtest/gtest.h>
#include <numbers>

namespace {

using namespace mp1a_test;
using namespace vela;
using std::numbers::pi;

double bark(double hz) {
    return 7 * std::asinh(hz / 650);
}
double from_db(double db) {
    return std::pow(10, db / 10);
}

/// Energies of the lines of a window of 1024 samples.
std::vector<double> spectrum(const float *samples) {
    std::vector<std::complex<double>> x(1024), roots(1024);
    for (int i = 0; i < 1024; ++i) {
        x[i] = samples[i] * 0.5 * (1 - std::cos((i - 0.5) * 2 * pi / 1024));
        roots[i] = std::polar(1.0, -2 * pi * i / 1024);
    }
    std::vector<double> energy(513);
    for (int k = 0; k <= 512; ++k) {
        std::complex<double> sum;
        for (int i = 0; i < 1024; ++i)
            sum += x[i] * roots[i * k % 1024];
        energy[k] = std::norm(sum);
    }
    return energy;
}

/// One channel, pass by pass.
class literal_model {
  public:
    literal_model(int rate, int step)
        : df_(rate / 1024.0), fading_(std::pow(0.35, step / 0.012 / rate)) {
        partition_lines lines;
        lay_partitions(lines, rate); // those of the standard's model, which other tests check
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

    void analyze(const float *samples, double (&weights)[32]) {
        const std::vector<double> now = excitation(spectrum(samples));
        before_.insert(before_.begin(), now);
        std::vector<double> factor(count_);
        for (int p = 0; p < count_; ++p)
            factor[p] = std::pow(
                1 / threshold(p, masking(p)) + 0.0001 / threshold(p, quietest_before(p)), 0.95);
        for (int sb = 0; sb < 32; ++sb) {
            weights[sb] = 0;
            for (int k = 0; k <= 512; ++k) {
                const double d = std::abs(k - 16 * sb - 8) / 16.0;
                if (d < 1)
                    weights[sb] += std::pow(std::cos(pi * d / 2), 2) * dz_[k] * factor[of_line_[k]];
            }
        }
    }

  private:
    double sum_of(const std::vector<double> &lines, int p) const {
        double sum = 0;
        for (int k = 0; k <= 512; ++k)
            sum += of_line_[k] == p ? lines[k] : 0;
        return sum;
    }
    double middle(int p) const {
        const auto [first, end] = std::equal_range(of_line_.begin(), of_line_.end(), p);
        const auto twice =
            static_cast<double>((first - of_line_.begin()) + (end - of_line_.begin()) - 1);
        return bark(twice / 2 * df_);
    }
    /// Every partition hears every other one's amplitude.
    std::vector<double> excitation(const std::vector<double> &energy) const {
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
    double masking(int p) const {
        double masking = 0;
        for (std::size_t i = 0; i < std::min<std::size_t>(3, before_.size()); ++i)
            masking = std::max(masking, std::pow(fading_, i) * before_[i][p]);
        return masking;
    }
    double quietest_before(int p) const {
        return before_.size() < 3 ? 0 : std::min(before_[1][p], before_[2][p]);
    }
    double threshold(int p, double masking) const {
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

    double df_, fading_;
    int count_;
    std::vector<int> of_line_;
    std::vector<double> dz_, norm_;
    std::vector<std::vector<double>> before_; ///< the latest first
};

TEST(tuned_model, equals_its_literal_steps_and_every_level_the_reference) {
    constexpr int rates[] = {32000, 44100, 48000};
    for (int i = 0; i < 2 * 2 * 3 * 6; ++i) {
        const int layer = 1 + i % 2, channels = 1 + i / 2 % 2, rate = rates[i / 4 % 3];
        const int step = layer == 1 ? 384 : 576, lead = layer == 1 ? 640 : 448,
                  frame = layer == 1 ? 384 : 1152;
        std::vector<float> input[2];
        for (unsigned c = 0; c < 2; ++c) {
            input[c].assign(640, 0.0F);
            for (const float sample : make_signal(all_waveforms[i / 12], 4 * frame, 3 + c))
                input[c].push_back(32768 * sample);
            input[c].resize(input[c].size() + 1152);
        }
        std::vector<literal_model> literal(2, literal_model(rate, step));
        std::vector<std::unique_ptr<tuned_model>> models;
        for (const level which : levels())
            models.emplace_back(new tuned_model)->init(which, layer, channels, rate);
        for (int f = 0; f < 4; ++f) {
            const float *const start[2] = {&input[0][640 + f * frame], &input[1][640 + f * frame]};
            noise_weights reference{};
            models[0]->analyze(start, reference);
            for (std::size_t m = 1; m < models.size(); ++m) {
                noise_weights got{};
                models[m]->analyze(start, got);
                // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): the same bits are wanted
                ASSERT_EQ(std::memcmp(got, reference, sizeof got), 0) << i << ", level " << m;
            }
            for (int c = 0; c < channels; ++c) {
                double first[32], last[32];
                literal[c].analyze(start[c] - lead, first);
                if (layer == 2) literal[c].analyze(start[c] - lead + step, last);
                for (int sb = 0; sb < 32; ++sb) {
                    EXPECT_NEAR(reference[c][0][sb] / first[sb], 1, 1e-8) << i << ", subband " << sb;
                    if (layer == 1) continue;
                    EXPECT_NEAR(reference[c][2][sb] / last[sb], 1, 1e-8) << i << ", subband " << sb;
                    EXPECT_NEAR(reference[c][1][sb] / (first[sb] + last[sb]) * 2, 1, 1e-8) << i;
                }
            }
        }
    }
}

} // namespace
