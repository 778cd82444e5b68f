#include "input/resampler.hpp"

#include <algorithm>

namespace tools {
namespace {

/// Of a piece that waits for a crew: rates beyond any use would fill the memory.
constexpr std::uint64_t most_bytes_in = 64 << 20;

/// One being made and one ready for every thread.
constexpr std::size_t pieces_per_thread = 2;

} // namespace

resampler::resampler(std::unique_ptr<pcm_source> source, int rate)
    : source_filter(std::move(source)), plan_(shape_.rate, rate) {
    shape_.rate = rate;
    shape_.format = sample_format::f32;
}

std::optional<std::uint64_t> resampler::length() const noexcept {
    const auto known = source().length();
    return known ? std::optional(plan_.samples_out(*known)) : std::nullopt;
}

void resampler::work_with(work_crew *crew) noexcept {
    source_filter::work_with(crew);
    const bool fits = plan_.length * source().shape().instant_bytes() <= most_bytes_in;
    crew_ = fits ? crew : nullptr;
}

std::span<const std::byte> resampler::next_block() {
    for (;;) {
        resampled_piece *const first = pieces_.empty() ? nullptr : pieces_.front().get();
        const bool is_here = first != nullptr && !first->is_with_crew;
        if (is_here) {
            if (const auto block = first->take(); !block.empty()) return std::as_bytes(block);
            if (first->is_complete()) {
                pieces_.pop_front();
                continue;
            }
        }
        const bool crew_first = crew_wants_more(); // never at the end
        if (!crew_first && first != nullptr && !is_here) {
            crew_->finish(*first);
            first->is_with_crew = false;
        } else if (!crew_first && is_here && (first->bytes_waiting() > 0 || ended_)) {
            first->run();
        } else if (!ended_) {
            gather();
        } else {
            return {};
        }
    }
}

bool resampler::ready_before(std::chrono::steady_clock::time_point time) const {
    const auto gives_more = [](const auto &piece) {
        return piece->is_with_crew || piece->has_output();
    };
    return ended_ || std::ranges::any_of(pieces_, gives_more) || source().ready_before(time);
}

bool resampler::crew_wants_more() const {
    if (crew_ == nullptr || ended_) return false;
    const auto there = std::ranges::count_if(pieces_, &resampled_piece::is_with_crew);
    return static_cast<std::size_t>(there) < pieces_per_thread * crew_->threads()
           && source().ready_before(std::chrono::steady_clock::now());
}

/// Takes a block of the source, and hands those pieces that have all of their input to the crew.
void resampler::gather() {
    const auto block = source().next_block();
    ended_ = block.empty();
    distribute(block);
    for (auto &piece : pieces_) {
        if (ended_) piece->end();
        if (crew_ == nullptr || piece->is_with_crew || piece->bytes_wanted() > 0
            || piece->is_complete())
            continue;
        piece->is_with_crew = true;
        crew_->submit(*piece);
    }
}

void resampler::distribute(std::span<const std::byte> block) {
    const std::size_t instant = source().shape().instant_bytes();
    while (!block.empty()) {
        if (read_ == next_begin_) open_piece();
        const auto part = block.first(static_cast<std::size_t>(
            std::min<std::uint64_t>(block.size(), (next_begin_ - read_) * instant)));
        for (auto &piece : pieces_)
            if (piece->bytes_wanted() > 0) // or the crew may have it
                piece->put(part.first(std::min(part.size(), piece->bytes_wanted())));
        read_ += part.size() / instant;
        block = block.subspan(part.size());
    }
}

void resampler::open_piece() {
    const bool is_first = next_begin_ == 0;
    pieces_.push_back(std::make_unique<resampled_piece>(plan_, source().shape(), is_first));
    next_begin_ += is_first ? plan_.length - plan_.overlap : plan_.length;
}

} // namespace tools
