#include "velainfo/alignment.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <kiss_fftr.h>
#include <memory>
#include <new>
#include <vector>

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

} // namespace

alignment align(std::span<const float> decoded, std::span<const float> source) {
    const std::size_t length = std::bit_ceil(decoded.size() + source.size());
    const plan forward = make_plan(length, false), backward = make_plan(length, true);
    const spectrum a = transform(forward.get(), decoded, length);
    spectrum product = transform(forward.get(), source, length);
    for (std::size_t i = 0; i < product.size(); ++i)
        product[i] *= std::conj(a[i]);
    std::vector<float> sums(length);
    kiss_fftri(backward.get(), reinterpret_cast<kiss_fft_cpx *>(product.data()), sums.data());
    const auto peak = std::ranges::max_element(sums) - sums.begin();
    alignment result;
    result.lag = peak < static_cast<std::ptrdiff_t>(source.size())
                     ? peak
                     : peak - static_cast<std::ptrdiff_t>(length);
    double both = 0, first = 0, second = 0;
    for (std::size_t n = 0; n < decoded.size(); ++n) {
        const std::int64_t m = static_cast<std::int64_t>(n) + result.lag;
        if (m < 0 || m >= static_cast<std::int64_t>(source.size())) continue;
        const double x = decoded[n], y = source[static_cast<std::size_t>(m)];
        both += x * y;
        first += x * x;
        second += y * y;
    }
    if (first > 0 && second > 0) result.correlation = both / std::sqrt(first * second);
    return result;
}

} // namespace tools
