#include "input/channel_matrix.hpp"

#include "input/sample_value.hpp"

#include <algorithm>
#include <array>
#include <numbers>
#include <numeric>

namespace tools {
namespace {

constexpr double minus_3_db = std::numbers::sqrt2 / 2;

struct share {
    double left, right;
};

/// ITU-R BS.775-3, annex 4, table 2, in the order of the speakers. What it does not have: the sides of
/// 7.1 are surround channels too, what stands between the centre and a side at the front belongs to that
/// side. There is none for speakers above.
constexpr std::array<share, 11> shares{{
    {1, 0},                   // front left
    {0, 1},                   // front right
    {minus_3_db, minus_3_db}, // front centre
    {0, 0},                   // low frequency
    {minus_3_db, 0},          // back left
    {0, minus_3_db},          // back right
    {1, 0},                   // front left of centre
    {0, 1},                   // front right of centre
    {0.5, 0.5},               // back centre
    {minus_3_db, 0},          // side left
    {0, minus_3_db},          // side right
}};

double sum_of(const std::vector<double> &row) {
    return std::accumulate(row.begin(), row.end(), 0.0);
}

} // namespace

gain_matrix unity_gains(int channels) {
    const auto size = static_cast<std::size_t>(channels);
    gain_matrix gains(size, std::vector<double>(size));
    for (std::size_t i = 0; i < size; ++i)
        gains[i][i] = 1;
    return gains;
}

namespace {

/// What all channels are multiplied by, where none goes into another one.
std::optional<double> gain_of_all(const gain_matrix &gains) {
    auto plain = unity_gains(static_cast<int>(gains.size()));
    for (std::size_t i = 0; i < plain.size(); ++i)
        plain[i][i] = gains[0][0];
    return gains == plain ? std::optional(gains[0][0]) : std::nullopt;
}

/// One output channel: every stride-th sample from `to` on is the sum of an instant's samples by their gains.
/// @tparam known  how many gains there are, where the loop over them is to be unrolled; otherwise 0
template <std::size_t known>
void mix(std::span<const float> in, std::span<const double> gains, float *to,
         std::size_t stride) noexcept {
    const std::size_t inputs = known != 0 ? known : gains.size();
    for (std::size_t at = 0; at < in.size(); at += inputs, to += stride) {
        double sum = 0;
        for (std::size_t i = 0; i < inputs; ++i)
            sum += gains[i] * in[at + i];
        *to = static_cast<float>(sum);
    }
}

} // namespace

gain_matrix own_gains(const std::vector<speaker> &from, std::span<const speaker_factor> own) {
    gain_matrix gains(2);
    for (const speaker each : from) {
        const auto row = static_cast<std::size_t>(each);
        if (row >= shares.size()) return {};
        share taken = shares.at(row);
        for (const auto &[where, factor] : own)
            if (where == each)
                taken = {taken.left > 0 || taken.right == 0 ? factor : 0,
                         taken.right > 0 || taken.left == 0 ? factor : 0};
        gains[0].push_back(taken.left);
        gains[1].push_back(taken.right);
    }
    return gains;
}

gain_matrix bs775_gains(const std::vector<speaker> &from) {
    gain_matrix gains = own_gains(from, {});
    if (gains.empty()) return gains;
    const double loudest = std::max({sum_of(gains[0]), sum_of(gains[1]), 1.0});
    for (auto &row : gains)
        for (double &gain : row)
            gain /= loudest;
    return gains;
}

channel_matrix::channel_matrix(std::unique_ptr<pcm_source> source, gain_matrix gains)
    : source_filter(std::move(source)), gains_(std::move(gains)), gain_(gain_of_all(gains_)) {
    shape_.channels = static_cast<int>(gains_.size());
    shape_.format = sample_format::f32;
}

std::span<const std::byte> channel_matrix::next_block() {
    const auto block = source().next_block();
    const auto inputs = static_cast<std::size_t>(source().shape().channels);
    load_samples(block, source().shape().format, in_);
    if (gain_) {
        for (float &each : in_)
            each = static_cast<float>(*gain_ * each);
        return std::as_bytes(std::span(in_));
    }
    out_.resize(in_.size() / inputs * gains_.size());
    for (std::size_t row = 0; row < gains_.size(); ++row)
        (inputs == 2 ? mix<2> : mix<0>)(in_, gains_[row], out_.data() + row, gains_.size());
    return std::as_bytes(std::span(out_));
}

std::unique_ptr<pcm_source> fit_channels(std::unique_ptr<pcm_source> source, int channels) {
    if (source->shape().channels == channels) return source;
    return std::make_unique<channel_matrix>(std::move(source), channels == 1 ? gain_matrix{{0.5, 0.5}}
                                                                             : gain_matrix{{1}, {1}});
}

} // namespace tools
