#include "output/timestamp_list.hpp"

#include <array>
#include <charconv>

namespace tools {
namespace {

constexpr std::size_t text_bytes = 64 * 1024;
constexpr std::size_t longest_number = 20; ///< 64 bits with sign
constexpr std::size_t longest_row = 6 * (longest_number + 1);

/// ISO/IEC 13818-1, 2.4.3.7: 90 kHz, rounded down, 33 bits that start over.
std::uint64_t pts_of(std::int64_t ticks) noexcept {
    const std::int64_t rounded = ticks / 300 - (ticks % 300 < 0 ? 1 : 0);
    return static_cast<std::uint64_t>(rounded) & 0x1FFFFFFFF;
}

} // namespace

timestamp_list::timestamp_list(output_file &file, std::int64_t begin) : file_(file), begin_(begin) {
    text_.reserve(text_bytes);
    text_ = "frame,byte_offset,bytes,time_stamp_27mhz,begin_27mhz,pts_90khz\n";
}

void timestamp_list::add(std::uint64_t frame, std::uint64_t offset, std::uint32_t bytes,
                         std::int64_t stamp) noexcept {
    if (text_.size() + longest_row > text_bytes) flush();
    const auto append = [this](auto value, char separator) {
        std::array<char, longest_number> digits;
        const auto end = std::to_chars(digits.begin(), digits.end(), value).ptr;
        text_.append(digits.data(), end).push_back(separator);
    };
    append(frame, ',');
    append(offset, ',');
    append(bytes, ',');
    append(stamp, ',');
    append(begin_, ',');
    append(pts_of(begin_), '\n');
    begin_ = stamp;
}

void timestamp_list::flush() noexcept {
    file_.write(std::as_bytes(std::span(text_)));
    text_.clear();
}

} // namespace tools
