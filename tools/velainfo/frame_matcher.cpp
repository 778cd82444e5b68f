#include "velainfo/frame_matcher.hpp"

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace tools {
namespace {

std::string_view bytes_of(const kept_frame &frame) {
    return {reinterpret_cast<const char *>(frame.bytes.data()), frame.bytes.size()};
}

/// Where each frame stands that occurs once: silence repeats itself, and what repeats itself tells no place.
std::unordered_map<std::string_view, std::size_t> places_of(const std::deque<kept_frame> &frames) {
    constexpr std::size_t often = ~std::size_t{};
    std::unordered_map<std::string_view, std::size_t> places;
    for (std::size_t i = 0; i < frames.size(); ++i)
        if (const auto [at, is_new] = places.emplace(bytes_of(frames[i]), i); !is_new)
            at->second = often;
    std::erase_if(places, [](const auto &entry) { return entry.second == often; });
    return places;
}

} // namespace

frame_matcher::frame_matcher(std::array<read_function, 2> read, std::array<std::uint64_t, 2> ahead)
    : read_(std::move(read)), alone_(ahead) {
}

std::optional<frame_matcher::pair> frame_matcher::next() {
    fill();
    const bool is_there[2] = {!frames_[0].empty(), !frames_[1].empty()};
    pair out{};
    const auto take = [&](std::size_t side) {
        out.frame[side] = &frames_[side].front();
        used_[side] = true;
    };
    if (!is_there[0] && !is_there[1]) return std::nullopt;
    if (is_there[0] && is_there[1]) {
        if (changed_ == 0 && alone_[0] == 0 && alone_[1] == 0) {
            out.is_equal = same(0, 0);
            if (!out.is_equal) plan();
        }
        if (out.is_equal || changed_ > 0) {
            changed_ -= out.is_equal ? 0 : 1;
            take(0), take(1);
            return out;
        }
    }
    const std::size_t side = !is_there[1] || (is_there[0] && alone_[0] > 0) ? 0 : 1;
    if (alone_[side] > 0) --alone_[side];
    take(side);
    return out;
}

void frame_matcher::fill() {
    for (std::size_t side = 0; side < 2; ++side) {
        auto &frames = frames_[side];
        if (used_[side]) frames.pop_front();
        used_[side] = false;
        while (!ended_[side] && frames.size() < window) {
            auto frame = read_[side]();
            ended_[side] = !frame;
            if (frame) frames.push_back(std::move(*frame));
        }
    }
}

bool frame_matcher::same(std::size_t i, std::size_t j) const {
    return frames_[0][i].bytes == frames_[1][j].bytes;
}

/// A single frame that both have somewhere is chance.
bool frame_matcher::goes_on(std::size_t i, std::size_t j) const {
    const bool last_first = i + 1 == frames_[0].size(), last_second = j + 1 == frames_[1].size();
    if (last_first || last_second) return last_first && last_second;
    return same(i + 1, j + 1);
}

/// What happens up to the next place from which on both are the same.
void frame_matcher::plan() {
    const std::size_t sizes[2] = {frames_[0].size(), frames_[1].size()};
    const auto places = places_of(frames_[1]), own = places_of(frames_[0]);
    const std::size_t both = std::min(sizes[0], sizes[1]);
    std::size_t best = window, first = 0, second = 0;
    for (std::size_t i = 0; i < sizes[0] && i < best; ++i) {
        if (i > 0 && i < sizes[1] && same(i, i)) {
            best = first = second = i;
            break;
        }
        const auto at = places.find(bytes_of(frames_[0][i]));
        if (at == places.end() || !own.contains(at->first)) continue;
        const std::size_t j = at->second;
        if (std::max(i, j) >= best || !goes_on(i, j)) continue;
        best = std::max(i, j);
        first = i, second = j;
    }
    if (best == window) {
        // Nothing in sight: what comes into it later may still belong to the second half.
        changed_ = ended_[0] || ended_[1] ? both : both / 2;
        return;
    }
    changed_ = std::min(first, second);
    alone_ = {first - changed_, second - changed_};
}

} // namespace tools
