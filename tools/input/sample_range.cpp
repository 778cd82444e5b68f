#include "input/sample_range.hpp"

#include "common/failure.hpp"

#include <algorithm>
#include <array>
#include <limits>

namespace tools {
namespace {

constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

} // namespace

sample_range::sample_range(std::unique_ptr<pcm_source> source, const extent &part,
                           std::string too_short)
    : source_filter(std::move(source)), part_(part), too_short_(std::move(too_short)),
      sound_left_(part.count.value_or(unlimited)), silence_left_(part.silence) {
}

std::optional<std::uint64_t> sample_range::sound() const noexcept {
    const auto all = source().length();
    if (!all) return std::nullopt;
    return std::min(*all - std::min(*all, part_.first), part_.count.value_or(unlimited));
}

std::optional<std::uint64_t> sample_range::length() const noexcept {
    const auto known = sound();
    return known ? std::optional(*known + part_.silence) : std::nullopt;
}

std::span<const std::byte> sample_range::next_block() {
    if (!begun_) skip_to_first();
    const auto block = next_sound();
    return block.empty() ? next_silence() : block;
}

bool sample_range::ready_before(std::chrono::steady_clock::time_point time) const {
    return sound_left_ == 0 || !rest_.empty() || source().ready_before(time);
}

bool sample_range::seek(std::uint64_t sample) {
    const auto known = sound();
    if (!known || sample > *known + part_.silence) return false;
    const std::uint64_t at = std::min(sample, *known);
    if (!source().seek(part_.first + at)) return false;
    begun_ = true;
    rest_ = {};
    sound_left_ = part_.count.value_or(unlimited) - at;
    silence_left_ = part_.silence - (sample - at);
    return true;
}

void sample_range::skip_to_first() {
    begun_ = true;
    const auto length = source().length();
    if (part_.first == 0 || (length && part_.first < *length && source().seek(part_.first))) return;
    for (std::uint64_t skipped = 0; skipped < part_.first;) {
        const auto block = source().next_block();
        if (block.empty()) throw failure(exit_code::input, too_short_);
        const std::uint64_t instants = block.size() / shape_.instant_bytes();
        const std::uint64_t surplus = std::min(instants, part_.first - skipped);
        rest_ = block.subspan(static_cast<std::size_t>(surplus) * shape_.instant_bytes());
        skipped += surplus;
    }
}

std::span<const std::byte> sample_range::next_sound() {
    if (sound_left_ == 0) return {};
    auto block = rest_.empty() ? source().next_block() : std::exchange(rest_, {});
    const std::uint64_t instants = block.size() / shape_.instant_bytes();
    const std::uint64_t taken = std::min(instants, sound_left_);
    sound_left_ = taken > 0 ? sound_left_ - taken : 0;
    return block.first(static_cast<std::size_t>(taken) * shape_.instant_bytes());
}

std::span<const std::byte> sample_range::next_silence() {
    static constexpr std::array<std::byte, block_bytes> zeros{};
    const std::uint64_t instants =
        std::min<std::uint64_t>(zeros.size() / shape_.instant_bytes(), silence_left_);
    silence_left_ -= instants;
    return std::span(zeros).first(static_cast<std::size_t>(instants) * shape_.instant_bytes());
}

} // namespace tools
