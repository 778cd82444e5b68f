#include "input/resampler.hpp"

#include "common/failure.hpp"
#include "input/sample_value.hpp"

#include <cstdlib>
#include <soxr.h>

namespace tools {
namespace {

/// libsoxr's code for AVX rounds otherwise in the last bit now and then; the plain code gives the same
/// samples on every machine. It looks there whenever a filter is made, so this is set before any thread
/// starts.
[[maybe_unused]] const int plain_arithmetic = ::setenv("SOXR_USE_SIMD64", "0", 1);

void check(soxr_error_t error) {
    if (error != nullptr)
        throw failure(exit_code::internal, std::string("resampling failed: ") + error);
}

} // namespace

void resampler::deleter::operator()(soxr *filter) const noexcept {
    soxr_delete(filter);
}

resampler::resampler(std::unique_ptr<pcm_source> source, int rate) : source_filter(std::move(source)) {
    const int from = shape_.rate;
    shape_.rate = rate;
    shape_.format = sample_format::f32;
    const auto formats = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const auto quality = soxr_quality_spec(SOXR_VHQ, 0);
    soxr_error_t error = nullptr;
    filter_.reset(soxr_create(from, rate, static_cast<unsigned>(shape_.channels), &error, &formats,
                              &quality, nullptr));
    check(error);
    in_.reserve(block_bytes); // never null, which would be the end for the filter
    out_.resize(block_bytes / sizeof(float));
}

std::optional<std::uint64_t> resampler::length() const noexcept {
    const auto known = source().length();
    if (!known) return std::nullopt;
    return static_cast<std::uint64_t>(static_cast<double>(*known) * shape_.rate / source().shape().rate
                                      + 0.5);
}

std::span<const std::byte> resampler::next_block() {
    std::size_t floats = drain();
    while (floats == 0 && !ended_) {
        if (used_ == in_.size()) feed(); // it may take a part and give nothing
        floats = drain();
    }
    return std::as_bytes(std::span(out_).first(floats));
}

bool resampler::ready_before(std::chrono::steady_clock::time_point time) const {
    return ended_ || used_ < in_.size() || source_filter::ready_before(time);
}

void resampler::feed() {
    const auto block = source().next_block();
    ended_ = block.empty();
    load_samples(block, source().shape().format, in_);
    used_ = 0;
}

/// Has the filter take what there is, and returns the floats that come out.
std::size_t resampler::drain() {
    const auto channels = static_cast<std::size_t>(shape_.channels);
    std::size_t taken = 0, given = 0;
    const float *const in = ended_ ? nullptr : in_.data() + used_;
    check(soxr_process(filter_.get(), in, ended_ ? 0 : (in_.size() - used_) / channels, &taken,
                       out_.data(), out_.size() / channels, &given));
    used_ += taken * channels;
    return given * channels;
}

} // namespace tools
