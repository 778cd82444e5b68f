#include "input/check_complete.hpp"

#include "common/byte_order.hpp"
#include "common/failure.hpp"
#include "input/container.hpp"
#include "input/pcm_source.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <ogg/ogg.h>
#include <optional>
#include <string_view>

namespace tools {
namespace {

std::string_view text_at(std::span<const std::byte> bytes, std::size_t at, std::size_t count) {
    return {reinterpret_cast<const char *>(bytes.subspan(at, count).data()), count};
}

/// Ogg pages carry checksums and numbers, and the last one of every stream is marked.
class ogg_check {
  public:
    explicit ogg_check(const input_file &input) : input_(input) { ogg_sync_init(&sync_); }
    ~ogg_check() { ogg_sync_clear(&sync_); }
    ogg_check(const ogg_check &) = delete;
    ogg_check &operator=(const ogg_check &) = delete;

    /// What is wrong; empty: nothing.
    std::string run() {
        ogg_page page{};
        for (;;) {
            const long bytes = ogg_sync_pageseek(&sync_, &page);
            if (bytes == 0 && !read()) break;
            if (bytes < 0 || (bytes > 0 && !follows(page)))
                return "is damaged in its Ogg page at byte " + std::to_string(at_);
            at_ += bytes;
        }
        if (sync_.fill != sync_.returned) return "is truncated: its last Ogg page is incomplete";
        return next_number_.empty() ? "" : "is truncated: its last Ogg page is missing";
    }

    /// Where streams begin again behind the first ones, if they do.
    std::optional<std::uint64_t> second() const noexcept { return second_; }

  private:
    bool read() {
        auto *const room = reinterpret_cast<std::byte *>(ogg_sync_buffer(&sync_, block_bytes));
        const auto left = std::min<std::uint64_t>(block_bytes, input_.size() - read_);
        const std::size_t count = read_at(input_, read_, {room, static_cast<std::size_t>(left)});
        ogg_sync_wrote(&sync_, static_cast<long>(count));
        read_ += count;
        return count != 0;
    }

    bool follows(const ogg_page &page) {
        const int stream = ogg_page_serialno(&page);
        const bool begins = ogg_page_bos(&page) != 0;
        if (begins) next_number_[stream] = ogg_page_pageno(&page);
        has_sound_ = has_sound_ || !begins;
        // libFLAC, which reads FLAC for libsndfile, goes on.
        const bool is_flac = page.body_len > 0 && page.body[0] == 0x7F;
        if (begins && has_sound_ && !second_ && !is_flac) second_ = at_;
        const auto next = next_number_.find(stream);
        if (next == next_number_.end()) return true; // some writers go on behind the mark of the end
        if (next->second++ != ogg_page_pageno(&page)) return false;
        if (ogg_page_eos(&page) != 0) next_number_.erase(next);
        return true;
    }

    const input_file &input_;
    ogg_sync_state sync_{};
    std::uint64_t read_ = 0;
    long at_ = 0;
    bool has_sound_ = false; ///< all streams begin before
    std::optional<std::uint64_t> second_;
    std::map<int, long> next_number_; ///< of every stream that goes on
};

/// MPEG audio may begin with a tag in its first frame, behind the side information: "Xing" or "Info",
/// flags, the number of frames and that of bytes where the flags say so. Returns where it ends then.
std::optional<std::uint64_t> end_by_tag(const input_file &input) {
    std::uint64_t start = 0;
    std::array<std::byte, 64> head{};
    const auto number = [&](std::size_t at, unsigned bits) {
        std::uint64_t value = 0;
        for (std::size_t i = at; i < at + 4; ++i)
            value = value << bits | std::to_integer<std::uint64_t>(head[i]);
        return value;
    };
    if (read_at(input, 0, head) == head.size() && text_at(head, 0, 3) == "ID3")
        start = 10 + number(6, 7);
    if (read_at(input, start, head) < head.size() || number(0, 8) >> 21 != 0x7FF) return std::nullopt;
    for (const std::size_t at : {13u, 21u, 36u}) { // by version and channels
        if (text_at(head, at, 4) != "Xing" && text_at(head, at, 4) != "Info") continue;
        const std::uint64_t flags = number(at + 4, 8);
        if (flags & 2) return start + number(at + (flags & 1 ? 12 : 8), 8);
    }
    return std::nullopt;
}

void check_ogg(const input_file &input, length_rule rule) {
    ogg_check check(input);
    if (const std::string damage = check.run(); !damage.empty()) report_incomplete(input, damage, rule);
    if (check.second()) report_second(input, *check.second(), rule);
}

void check_mpeg(const input_file &input, length_rule rule) {
    const auto end = end_by_tag(input);
    if (!end) return;
    if (*end > input.size()) report_missing(input, *end - input.size(), rule);
    constexpr std::uint64_t longest_tags = 4096; ///< and frames that some writers do not count
    std::array<std::byte, 3> next{};
    if (*end + longest_tags > input.size() || read_at(input, *end, next) < next.size()) return;
    const bool is_frame = next[0] == std::byte{0xFF} && next[1] >= std::byte{0xE0};
    if (is_frame || text_at(next, 0, 3) == "ID3") report_second(input, *end, rule);
}

} // namespace

std::uint64_t bytes_before_tags(const input_file &input) {
    constexpr std::uint64_t id3v1 = 128, ape_footer = 32;
    std::array<std::byte, ape_footer> bytes{};
    std::uint64_t size = input.size();
    const auto has = [&](std::uint64_t at, std::string_view magic) {
        return read_at(input, at, bytes) == bytes.size() && text_at(bytes, 0, magic.size()) == magic;
    };
    const std::string kind = name_at(fetch_from(input), 0);
    if (kind != "fLaC" && kind != "OggS") return size;
    if (size > id3v1 && has(size - id3v1, "TAG")) size -= id3v1;
    if (size > ape_footer && has(size - ape_footer, "APETAGEX")) {
        // The size counts the items and this footer; the highest bit of the flags tells of a header.
        const bool has_header = (bytes[23] & std::byte{0x80}) != std::byte{0};
        const std::uint64_t length =
            little_endian(std::span(bytes).subspan(12, 4)) + (has_header ? ape_footer : 0);
        if (length <= size && (!has_header || has(size - length, "APETAGEX"))) size -= length;
    }
    return size;
}

void check_complete(const input_file &input, length_rule rule) {
    const auto fetch = fetch_from(input);
    if (const auto sound = find_sound_data(fetch)) {
        check_chunks(input, *sound, rule);
        return;
    }
    // Writers to pipes guess the size of chunks; who writes pages or tags does not.
    if (rule == length_rule::hint) rule = length_rule::promise;
    if (name_at(fetch, 0) == "OggS") check_ogg(input, rule);
    check_mpeg(input, rule);
}

} // namespace tools
