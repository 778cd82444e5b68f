#include "velainfo/alignment.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <kiss_fftr.h>
#include <memory>
#include <new>

namespace tools {
namespace {

using spectrum = std::vector<std::complex<float>>;
using plan = std::unique_ptr<std::remove_pointer_t<kiss_fftr_cfg>, decltype(&std::free)>;

plan make_plan(std::size_t length, bool inverse) {
    plan made(kiss_fftr_alloc(static_cast<int>(length), inverse ? 1 : 0, nullptr, nullptr), &std::free);
    if (!made) throw std::bad_alloc();
    return made;
}

spectrum transform(kiss_fftr_cfg how, std::span<const float> samples, std::size_t length) {
    std::vector<float> padded(samples.begin(), samples.end());
    padded.resize(length);
    spectrum out(length / 2 + 1);
    kiss_fftr(how, padded.data(), reinterpret_cast<kiss_fft_cpx *>(out.data()));
    return out;
}

/// Energy of all channels in the first n samples, n = 0 .. size.
std::vector<double> running_energy(const channel_sound &sound) {
    std::vector<double> sums(sound.front().size() + 1);
    for (std::size_t n = 0; n + 1 < sums.size(); ++n) {
        sums[n + 1] = sums[n];
        for (const auto &channel : sound)
            sums[n + 1] += static_cast<double>(channel[n]) * static_cast<double>(channel[n]);
    }
    return sums;
}

/// Cross-correlation of both channels, by lag modulo the transform's length.
class correlator {
  public:
    correlator(const channel_sound &decoded, const channel_sound &source)
        : length_(std::bit_ceil(decoded.front().size() + source.front().size())),
          backward_(make_plan(length_, true)), decoded_energy_(running_energy(decoded)),
          source_energy_(running_energy(source)) {
        const plan forward = make_plan(length_, false);
        for (std::size_t ch = 0; ch < decoded.size(); ++ch) {
            decoded_.push_back(transform(forward.get(), decoded[ch], length_));
            source_.push_back(transform(forward.get(), source[ch], length_));
        }
    }

    /// Normalized, for every lag of the range; 0 where too little overlaps to tell.
    std::vector<double> correlate(bool swapped, std::int64_t lowest, std::int64_t highest) const {
        spectrum product(length_ / 2 + 1);
        for (std::size_t ch = 0; ch < decoded_.size(); ++ch)
            for (std::size_t i = 0; i < product.size(); ++i)
                product[i] += source_[swapped ? 1 - ch : ch][i] * std::conj(decoded_[ch][i]);
        std::vector<float> sums(length_);
        kiss_fftri(backward_.get(), reinterpret_cast<kiss_fft_cpx *>(product.data()), sums.data());
        const auto decoded_size = static_cast<std::int64_t>(decoded_energy_.size()) - 1,
                   source_size = static_cast<std::int64_t>(source_energy_.size()) - 1;
        const auto energy = [](const std::vector<double> &sum, std::int64_t first, std::int64_t end) {
            return sum[static_cast<std::size_t>(end)] - sum[static_cast<std::size_t>(first)];
        };
        std::vector<double> out;
        for (std::int64_t lag = lowest; lag <= highest; ++lag) {
            const std::int64_t first = std::max<std::int64_t>(0, -lag),
                               end = std::min(decoded_size, source_size - lag);
            double value = 0;
            if (end > first) {
                const double d = energy(decoded_energy_, first, end),
                             s = energy(source_energy_, first + lag, end + lag);
                const auto place =
                    static_cast<std::size_t>(lag < 0 ? lag + static_cast<std::int64_t>(length_) : lag);
                // The inverse transform leaves its length in. Where little of the sound's energy overlaps a
                // chance likeness would win, in near silence the rounding of the transforms.
                if (s > 1e-6 * source_energy_.back() && d > decoded_energy_.back() / 8)
                    value = static_cast<double>(sums[place]) / static_cast<double>(length_)
                            / std::sqrt(d * s);
            }
            out.push_back(std::clamp(value, -1.0, 1.0));
        }
        return out;
    }

  private:
    std::size_t length_;
    plan backward_;
    std::vector<double> decoded_energy_, source_energy_;
    std::vector<spectrum> decoded_, source_;
};

/// About as good as the best: what the noise of the coding leaves over is nearly the same.
double good_enough(double best) {
    return best - 0.05 * (1 - best) - 2e-4;
}

} // namespace

alignment align(const channel_sound &decoded, const channel_sound &source, std::int64_t expected,
                std::int64_t lowest, std::int64_t highest) {
    const correlator found(decoded, source);
    std::vector<std::vector<double>> values{found.correlate(false, lowest, highest)};
    if (decoded.size() == 2) values.push_back(found.correlate(true, lowest, highest));
    double best = 0;
    for (const auto &of : values)
        for (const double value : of)
            best = std::max(best, std::fabs(value));
    // Only a peak is a place: beside one the values of sound with little treble are nearly as great.
    const auto is_peak = [](const std::vector<double> &of, std::size_t i, double sign) {
        return (i == 0 || sign * of[i - 1] <= sign * of[i])
               && (i + 1 == of.size() || sign * of[i + 1] < sign * of[i]);
    };
    for (const double sign : {1.0, -1.0}) {
        for (std::size_t side = 0; side < values.size(); ++side) {
            const auto &of = values[side];
            alignment result{.lag = 0, .correlation = 0, .swapped = side == 1};
            for (std::size_t i = 0; i < of.size(); ++i) {
                const std::int64_t lag = lowest + static_cast<std::int64_t>(i);
                const bool nearer = result.correlation == 0
                                    || std::abs(lag - expected) < std::abs(result.lag - expected);
                if (sign * of[i] >= good_enough(best) && nearer && is_peak(of, i, sign))
                    result = {.lag = lag, .correlation = of[i], .swapped = side == 1};
            }
            if (result.correlation != 0) return result;
        }
    }
    return {};
}

double correlation_at(const channel_sound &decoded, const channel_sound &source, std::int64_t lag,
                      bool swapped) {
    double both = 0, first = 0, second = 0;
    const auto size = static_cast<std::int64_t>(decoded.front().size()),
               end = static_cast<std::int64_t>(source.front().size());
    for (std::size_t ch = 0; ch < decoded.size(); ++ch) {
        const auto &from = source[swapped ? 1 - ch : ch];
        for (std::int64_t n = std::max<std::int64_t>(0, -lag); n < std::min(size, end - lag); ++n) {
            const auto x = static_cast<double>(decoded[ch][static_cast<std::size_t>(n)]),
                       y = static_cast<double>(from[static_cast<std::size_t>(n + lag)]);
            both += x * y;
            first += x * x;
            second += y * y;
        }
    }
    return first > 0 && second > 0 ? both / std::sqrt(first * second) : 0;
}

} // namespace tools
