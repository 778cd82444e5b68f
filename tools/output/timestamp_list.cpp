#include "output/timestamp_list.hpp"

#include "common/counted.hpp"

#include <cinttypes>

namespace tools {
namespace {

/// ISO/IEC 13818-1, 2.4.3.7: 90 kHz, rounded down, 33 bits that start over.
std::uint64_t pts_of(std::int64_t ticks) noexcept {
    const std::int64_t rounded = ticks / 300 - (ticks % 300 < 0 ? 1 : 0);
    return static_cast<std::uint64_t>(rounded) & 0x1FFFFFFFF;
}

} // namespace

timestamp_list::timestamp_list(output_file &file, std::int64_t begin)
    : file_(file), begin_(begin),
      text_("frame,byte_offset,bytes,time_stamp_27mhz,begin_27mhz,pts_90khz\n") {
}

void timestamp_list::add(std::uint64_t frame, std::uint64_t offset, std::uint32_t bytes,
                         std::int64_t stamp) {
    text_ += formatted("%" PRIu64 ",%" PRIu64 ",%" PRIu32 ",%" PRId64 ",%" PRId64 ",%" PRIu64 "\n",
                       frame, offset, bytes, stamp, begin_, pts_of(begin_));
    begin_ = stamp;
}

void timestamp_list::flush() noexcept {
    file_.write(std::as_bytes(std::span(text_)));
    text_.clear();
}

} // namespace tools
