#include "input/resampled_piece.hpp"

#include "common/failure.hpp"
#include "input/sample_value.hpp"

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <soxr.h>
#include <stdexcept>

namespace tools {
namespace {

/// libsoxr's single-precision code in lanes of SSE, which every x86-64 machine has, gives the same samples
/// on all of them; its double-precision code in lanes of AVX rounds otherwise than its plain code. It
/// looks there whenever a filter is made, so this is set before any thread starts.
[[maybe_unused]] const bool chooses_code = [] {
    return ::unsetenv("SOXR_USE_SIMD") == 0 && ::setenv("SOXR_USE_SIMD32", "1", 1) == 0;
}();

void check(soxr_error_t error) {
    if (error != nullptr)
        throw failure(exit_code::internal, std::string("resampling failed: ") + error);
}

/// A filter costs as much as some thousand samples: below 2 % of a piece.
constexpr std::uint64_t least_samples_out = 1 << 17;

/// Rates that have hardly anything in common meet once a second only, and their pieces overlap by that.
constexpr std::uint64_t least_overlaps = 8;

/// Samples of the lower rate that libsoxr's filters reach to either side, and some more.
constexpr std::uint64_t reach = 400;

/// Of libsoxr's transforms, the logarithm to base 2: a fifth quicker than its own choice.
constexpr unsigned quickest_dft_size = 12;

/// Of the input, for the filter to take at a time.
constexpr std::size_t most_samples_in = 4096;

} // namespace

piece_plan::piece_plan(int from_rate, int to_rate) : from(from_rate), to(to_rate) {
    const auto common = std::gcd(from, to);
    const auto unit_in = static_cast<std::uint64_t>(from / common);
    const auto unit_out = static_cast<std::uint64_t>(to / common);
    const auto units_for = [](std::uint64_t samples, std::uint64_t unit) {
        return (samples + unit - 1) / unit;
    };
    const std::uint64_t reach_in = reach * static_cast<std::uint64_t>(from / to + 1);
    overlap = units_for(reach_in, unit_in) * unit_in;
    length = std::max(units_for(least_samples_out, unit_out) * unit_in, least_overlaps * overlap);
}

std::uint64_t piece_plan::samples_out(std::uint64_t in) const noexcept {
    const auto in_second = static_cast<std::uint64_t>(from),
               out_second = static_cast<std::uint64_t>(to);
    return in / in_second * out_second
           + (2 * (in % in_second) * out_second + in_second) / (2 * in_second);
}

void resampled_piece::deleter::operator()(soxr *filter) const noexcept {
    soxr_delete(filter);
}

resampled_piece::resampled_piece(const piece_plan &plan, const pcm_shape &in, bool is_first)
    : plan_(plan), shape_(in), channels_(static_cast<std::size_t>(in.channels)),
      before_(is_first ? 0 : plan.samples_out(plan.overlap)), passed_(before_),
      wanted_(plan.samples_out(plan.length)),
      bytes_wanted_(static_cast<std::size_t>((is_first ? 0 : plan.overlap) + plan.length + plan.overlap)
                    * in.instant_bytes()),
      out_(static_cast<std::size_t>(wanted_) * channels_) {
}

resampled_piece::~resampled_piece() = default;

void resampled_piece::put(std::span<const std::byte> bytes) {
    in_.insert(in_.end(), bytes.begin(), bytes.end());
    bytes_wanted_ -= bytes.size();
    samples_in_ += bytes.size() / shape_.instant_bytes();
}

void resampled_piece::end() {
    if (bytes_wanted_ == 0) return; // the crew may have it
    bytes_wanted_ = 0;
    const std::uint64_t all = plan_.samples_out(samples_in_);
    wanted_ = std::min(wanted_, all - std::min(all, before_));
}

void resampled_piece::run() {
    if (!filter_) {
        const auto formats = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
        const auto quality = soxr_quality_spec(SOXR_HQ, SOXR_HI_PREC_CLOCK);
        auto blocks = soxr_runtime_spec(1);
        blocks.log2_min_dft_size = quickest_dft_size;
        soxr_error_t error = nullptr;
        filter_.reset(soxr_create(plan_.from, plan_.to, static_cast<unsigned>(channels_), &error,
                                  &formats, &quality, &blocks));
        check(error);
    }
    for (std::span<const std::byte> rest = in_; !rest.empty();) {
        const auto part = rest.first(std::min(rest.size(), most_samples_in * shape_.instant_bytes()));
        load_samples(part, shape_.format, values_);
        process(values_);
        rest = rest.subspan(part.size());
    }
    in_.clear();
    if (bytes_wanted_ > 0) return;
    process({});
    if (!is_complete()) throw std::logic_error("a resampled piece lacks samples");
}

/// Has the filter take them all, or come to its end where there are none.
void resampled_piece::process(std::span<const float> samples) {
    const bool ends = samples.empty();
    while (!is_complete()) {
        std::size_t taken = 0, given = 0;
        const std::uint64_t room = passed_ > 0 ? std::min(passed_, wanted_) : wanted_ - made_;
        check(soxr_process(filter_.get(), ends ? nullptr : samples.data(), samples.size() / channels_,
                           &taken, out_.data() + made_ * channels_, static_cast<std::size_t>(room),
                           &given));
        passed_ > 0 ? passed_ -= given : made_ += given;
        samples = samples.subspan(taken * channels_);
        if (given == 0 && (ends || samples.empty())) return;
    }
}

std::span<const float> resampled_piece::take() noexcept {
    const std::uint64_t most = block_bytes / sizeof(float) / channels_;
    const std::uint64_t count = std::min(made_ - taken_, most);
    const auto block = std::span<const float>(out_).subspan(
        static_cast<std::size_t>(taken_) * channels_, static_cast<std::size_t>(count) * channels_);
    taken_ += count;
    return block;
}

} // namespace tools
