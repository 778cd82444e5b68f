#include "output/timestamp_list.hpp"

#include <array>
#include <charconv>

namespace tools {
namespace {

constexpr std::size_t text_bytes = 64 * 1024;
constexpr std::size_t longest_number = 20; ///< 64 bits with sign
constexpr std::size_t longest_row = 4 * (longest_number + 1);

} // namespace

timestamp_list::timestamp_list(output_file &file) : file_(file) {
    text_.reserve(text_bytes);
    text_ = "frame,byte_offset,bytes,time_stamp_27mhz\n";
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
    append(stamp, '\n');
}

void timestamp_list::flush() noexcept {
    file_.write(std::as_bytes(std::span(text_)));
    text_.clear();
}

} // namespace tools
