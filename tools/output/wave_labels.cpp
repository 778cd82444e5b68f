#include "output/wave_labels.hpp"

#include "common/byte_order.hpp"

#include <algorithm>
#include <set>
#include <span>

namespace tools {
namespace {

std::string_view text_at(std::span<const std::byte> bytes, std::size_t at) {
    return {reinterpret_cast<const char *>(bytes.data()) + at, 4};
}

std::uint64_t number_at(std::span<const std::byte> bytes, std::size_t at) {
    return little_endian(bytes.subspan(at, 4));
}

void set_number(std::span<std::byte> bytes, std::size_t at, std::uint64_t value) {
    set_little_endian(bytes.subspan(at, 4), value);
}

/// A number of samples at the stream's rate.
std::uint64_t converted(std::uint64_t samples, const label_shift &shift) {
    const auto from = static_cast<std::uint64_t>(shift.from), to = static_cast<std::uint64_t>(shift.to);
    return (samples * to + from / 2) / from;
}

/// Nothing for one outside the sound.
std::optional<std::uint64_t> moved(std::uint64_t position, const label_shift &shift) {
    if (position < shift.start) return std::nullopt;
    const std::uint64_t there = converted(position - shift.start, shift);
    return shift.count && there > *shift.count ? std::nullopt : std::optional(there);
}

/// A count, then 24 bytes a point: its number, its position, "data", two offsets that only lists of
/// wave chunks need, its position once more.
std::set<std::uint64_t> move_cue_points(byte_list &cue, const label_shift &shift) {
    constexpr std::size_t header = 4, point_bytes = 24, position_at = 4, offset_at = 20;
    std::set<std::uint64_t> left_out;
    if (cue.size() < header) return left_out;
    byte_list result(header);
    for (std::size_t at = header; at + point_bytes <= cue.size(); at += point_bytes) {
        const auto point = std::span(cue).subspan(at, point_bytes);
        const auto position = moved(number_at(point, position_at), shift);
        const auto offset = moved(number_at(point, offset_at), shift);
        if (!offset) {
            left_out.insert(number_at(point, 0));
            continue;
        }
        set_number(point, position_at, position.value_or(*offset));
        set_number(point, offset_at, *offset);
        result.insert(result.end(), point.begin(), point.end());
    }
    set_number(result, 0, result.size() / point_bytes);
    cue = std::move(result);
    return left_out;
}

/// Chunks in a chunk: "labl", "note" and "ltxt" begin with the number of their cue point; the last one's
/// length in samples follows.
void move_cue_labels(byte_list &list, const std::set<std::uint64_t> &left_out,
                     const label_shift &shift) {
    constexpr std::size_t header = 8;
    byte_list result(list.begin(), list.begin() + 4);
    for (std::size_t at = 4; at + header <= list.size();) {
        const std::size_t bytes = number_at(list, at + 4), whole = header + bytes + bytes % 2;
        const auto label = std::span(list).subspan(at, std::min(whole, list.size() - at));
        at += whole;
        if (label.size() >= header + 4 && left_out.contains(number_at(label, header))) continue;
        if (text_at(label, 0) == "ltxt" && label.size() >= header + 8)
            set_number(label, header + 4, converted(number_at(label, header + 4), shift));
        result.insert(result.end(), label.begin(), label.end());
    }
    list = std::move(result);
}

/// AES46-2002: eight timers of four characters and a position in samples each; those without a name
/// are free. One outside the sound is left as it is: it may be meant for more than this sound.
void move_cart_timers(byte_list &cart, const label_shift &shift) {
    constexpr std::size_t timers_at = 684, timers = 8, timer_bytes = 8;
    if (cart.size() < timers_at + timers * timer_bytes) return;
    for (std::size_t i = 0; i < timers; ++i) {
        const auto timer = std::span(cart).subspan(timers_at + i * timer_bytes, timer_bytes);
        if (number_at(timer, 0) == 0) continue;
        if (const auto position = moved(number_at(timer, 4), shift)) set_number(timer, 4, *position);
    }
}

} // namespace

bool is_label(std::string_view name) noexcept {
    constexpr std::string_view names[] = {"cart", "iXML", "axml", "cue ", "LIST"};
    return std::ranges::count(names, name) != 0;
}

bool is_technical(std::string_view name) noexcept {
    constexpr std::string_view names[] = {"fmt ", "fact", "data", "ds64", "bext", "mext",
                                          "JUNK", "junk", "PAD ", "FLLR", "PEAK"};
    return std::ranges::count(names, name) != 0;
}

std::size_t move_labels(std::vector<wav_chunk> &labels, const label_shift &shift) {
    std::set<std::uint64_t> left_out;
    for (auto &[name, contents, is_whole] : labels) {
        if (name == "cue ") left_out.merge(move_cue_points(contents, shift));
        if (name == "cart") move_cart_timers(contents, shift);
    }
    for (auto &[name, contents, is_whole] : labels)
        if (name == "LIST" && contents.size() >= 4 && text_at(contents, 0) == "adtl")
            move_cue_labels(contents, left_out, shift);
    return left_out.size();
}

} // namespace tools
