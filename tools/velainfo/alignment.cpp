#include "velainfo/alignment.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <kiss_fftr.h>
#include <memory>
#include <new>
#include <numeric>

namespace tools {
namespace {

using spectrum = std::vector<std::complex<float>>;
using plan = std::unique_ptr<std::remove_pointer_t<kiss_fftr_cfg>, decltype(&std::free)>;

plan make_plan(std::size_t length, bool inverse) {
    plan made(kiss_fftr_alloc(static_cast<int>(length), inverse, nullptr, nullptr), &std::free);
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
    for (const auto &channel : sound)
        for (std::size_t n = 0; n < channel.size(); ++n)
            sums[n + 1] += static_cast<double>(channel[n]) * static_cast<double>(channel[n]);
    std::partial_sum(sums.begin(), sums.end(), sums.begin());
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
            const double d = energy(decoded_energy_, first, end),
                         s = energy(source_energy_, first + lag, end + lag);
            // Where little of the sound's energy overlaps a chance likeness would win, in near silence the rounding
            // of the transforms.
            const bool tells = s > 1e-6 * source_energy_.back() && d > decoded_energy_.back() / 8;
            // The inverse transform leaves its length in, a power of two.
            const auto place = static_cast<std::size_t>(lag) % length_;
            const double value = static_cast<double>(sums[place]) / static_cast<double>(length_);
            out.push_back(tells ? std::clamp(value / std::sqrt(d * s), -1.0, 1.0) : 0);
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

std::optional<alignment> align(const channel_sound &decoded, const channel_sound &source,
                               std::int64_t expected, std::int64_t lowest, std::int64_t highest) {
    const correlator found(decoded, source);
    std::vector<std::vector<double>> values{found.correlate(false, lowest, highest)};
    if (decoded.size() == 2) values.push_back(found.correlate(true, lowest, highest));
    double best = 0;
    for (const auto &of : values)
        for (const double value : of)
            best = std::max(best, std::fabs(value));
    for (const double sign : {1.0, -1.0}) {
        for (std::size_t side = 0; side < values.size(); ++side) {
            const auto &of = values[side];
            std::optional<alignment> nearest;
            for (std::size_t i = 1; i + 1 < of.size(); ++i) {
                // Only a peak is a place: beside one the values of sound with little treble are nearly as great.
                const bool is_peak =
                    sign * of[i - 1] <= sign * of[i] && sign * of[i + 1] < sign * of[i];
                const std::int64_t lag = lowest + static_cast<std::int64_t>(i);
                if (is_peak && sign * of[i] >= good_enough(best)
                    && (!nearest || std::abs(lag - expected) < std::abs(nearest->lag - expected)))
                    nearest = {.lag = lag, .correlation = of[i], .swapped = side == 1};
            }
            if (nearest) return nearest;
        }
    }
    return std::nullopt;
}

sound_products products_of(const channel_sound &decoded, const channel_sound &source, std::int64_t lag,
                           bool swapped) {
    sound_products sums{};
    const auto size = static_cast<std::int64_t>(decoded.front().size()),
               end = static_cast<std::int64_t>(source.front().size());
    for (std::size_t ch = 0; ch < decoded.size(); ++ch) {
        const auto &from = source[swapped ? 1 - ch : ch];
        for (std::int64_t n = std::max<std::int64_t>(0, -lag); n < std::min(size, end - lag); ++n) {
            const auto x = static_cast<double>(decoded[ch][static_cast<std::size_t>(n)]),
                       y = static_cast<double>(from[static_cast<std::size_t>(n + lag)]);
            sums.both += x * y;
            sums.decoded += x * x;
            sums.source += y * y;
        }
    }
    return sums;
}

} // namespace tools
