#include "input/check_complete.hpp"

#include "common/failure.hpp"
#include "input/container.hpp"
#include "input/pcm_source.hpp"

#include <array>
#include <map>
#include <ogg/ogg.h>
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

  private:
    bool read() {
        auto *const room = reinterpret_cast<std::byte *>(ogg_sync_buffer(&sync_, block_bytes));
        const std::size_t count = read_at(input_, read_, {room, block_bytes});
        ogg_sync_wrote(&sync_, static_cast<long>(count));
        read_ += count;
        return count != 0;
    }

    bool follows(const ogg_page &page) {
        const int stream = ogg_page_serialno(&page);
        if (ogg_page_bos(&page) != 0) next_number_[stream] = ogg_page_pageno(&page);
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
    std::map<int, long> next_number_; ///< of every stream that goes on
};

/// MPEG audio may begin with a tag in its first frame, behind the side information: "Xing" or "Info",
/// flags, the number of frames and that of bytes where the flags say so. Returns the bytes that lack.
std::uint64_t mpeg_bytes_missing(const input_file &input) {
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
    if (read_at(input, start, head) < head.size() || number(0, 8) >> 21 != 0x7FF) return 0;
    for (const std::size_t at : {13u, 21u, 36u}) { // by version and channels
        if (text_at(head, at, 4) != "Xing" && text_at(head, at, 4) != "Info") continue;
        const std::uint64_t flags = number(at + 4, 8);
        const std::uint64_t end = start + number(at + (flags & 1 ? 12 : 8), 8);
        return flags & 2 && end > input.size() ? end - input.size() : 0;
    }
    return 0;
}

} // namespace

void check_complete(const input_file &input, length_rule rule) {
    if (const auto sound = find_sound_data(fetch_from(input))) {
        check_chunks(input, *sound, rule);
        return;
    }
    // Writers to pipes guess the size of chunks; who writes pages or tags does not.
    if (rule == length_rule::hint) rule = length_rule::promise;
    std::array<std::byte, 4> magic{};
    const bool ogg = read_at(input, 0, magic) == magic.size() && text_at(magic, 0, 4) == "OggS";
    if (const std::string damage = ogg ? ogg_check(input).run() : ""; !damage.empty())
        report_incomplete(input, damage, rule);
    if (const auto missing = mpeg_bytes_missing(input)) report_missing(input, missing, rule);
}

} // namespace tools
