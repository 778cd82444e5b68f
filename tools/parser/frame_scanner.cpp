#include "parser/frame_scanner.hpp"

#include <algorithm>
#include <cstring>

namespace tools {
namespace {

constexpr std::size_t window_bytes = 1 << 18, id3v1_bytes = 128;

/// Four frames and a header.
constexpr std::size_t look_ahead = 8192;

} // namespace

frame_scanner::frame_scanner(read_function read) : read_(std::move(read)), buffer_(window_bytes) {
}

std::optional<stream_piece> frame_scanner::next() {
    fill(look_ahead);
    if (available() == 0) return std::nullopt;
    if (in_place_ ? begins_in_place() : begins_anywhere(0)) return take_frame();
    return take_gap();
}

/// Tries to have that many bytes in the window; the input may end before.
void frame_scanner::fill(std::size_t bytes) {
    if (available() >= bytes) return;
    std::memmove(buffer_.data(), buffer_.data() + begin_, available());
    end_ -= begin_;
    begin_ = 0;
    while (available() < bytes && !at_end_) {
        const std::size_t got = read_(std::span(buffer_).subspan(end_));
        end_ += got;
        at_end_ = got == 0;
    }
}

std::span<const std::uint8_t> frame_scanner::window(std::size_t position) const {
    return std::span(buffer_).subspan(begin_ + position, available() - position);
}

std::optional<stream_header> frame_scanner::header_at(std::size_t position) const {
    return position < available() ? read_header(window(position)) : std::nullopt;
}

/// `frames` headers one after the other, of that kind (null: of the first one's), or fewer up to the
/// exact end of the input. The last of them need not be complete.
bool frame_scanner::has_chain(std::size_t position, int frames, const stream_header *kind) const {
    std::optional<stream_header> first;
    for (int i = 0; i < frames; ++i) {
        if (i > 0 && at_end_ && position == available()) return true;
        const auto header = header_at(position);
        if (!header) return false;
        if (!first) first = header;
        if (!header->same_kind(kind != nullptr ? *kind : *first)) return false;
        position += static_cast<std::size_t>(header->bytes());
    }
    return true;
}

bool frame_scanner::begins_anywhere(std::size_t position) const {
    const auto header = header_at(position);
    if (!header) return false;
    const std::size_t end = position + static_cast<std::size_t>(header->bytes());
    if (end > available()) return false;
    if (kind_ && has_chain(position, 2, &*kind_)) return true;
    // A single frame at the end of arbitrary bytes is no stream.
    if (offset_ + position > 0 && at_end_ && end == available()) return false;
    const bool first_byte = offset_ + position == 0;
    return has_chain(position, kind_ ? 4 : first_byte ? 2 : 3, nullptr);
}

bool frame_scanner::begins_in_place() const {
    const auto header = header_at(0);
    if (!header) return false;
    const auto length = static_cast<std::size_t>(header->bytes());
    if (length > available()) return false;
    if (!header->same_kind(*kind_)) return begins_anywhere(0);
    if (available() >= id3v1_bytes && available() - id3v1_bytes < length
        && only_id3v1_is_left(available() - id3v1_bytes))
        return false;
    // A damaged bitrate may well lead to the frame after the next one.
    if (header->kbps == kind_->kbps && has_chain(0, 2, &*kind_)) return true;
    for (std::size_t inside = header_bytes; inside < length; ++inside)
        if (begins_anywhere(inside)) return false;
    return true;
}

stream_piece frame_scanner::take_frame() {
    kind_ = header_at(0);
    in_place_ = true;
    const auto bytes = window(0).first(static_cast<std::size_t>(kind_->bytes()));
    const stream_piece piece{offset_, bytes.size(), kind_, true, std::nullopt, bytes};
    advance(bytes.size());
    return piece;
}

/// The tag that a cut frame at the end does not take along.
bool frame_scanner::only_id3v1_is_left(std::size_t position) const {
    if (!at_end_ || available() != position + id3v1_bytes) return false;
    const auto tag = read_tag(window(position));
    return tag && tag->length == id3v1_bytes;
}

stream_piece frame_scanner::take_gap() {
    const std::uint64_t begin = offset_;
    const auto header = header_at(0);
    const std::size_t head = std::min(available(), gap_head_.size());
    std::copy_n(window(0).data(), head, gap_head_.data());
    if (window(0)[0] == 'L') fill(longest_tag_search);
    const auto tag = read_tag(window(0));
    const std::uint64_t end = tag ? offset_ + tag->length : ~std::uint64_t{};
    const auto interesting = [](std::uint8_t byte) { return byte == 0xFF || byte == 'T'; };
    do {
        advance(1);
        fill(look_ahead);
        const auto rest = window(0).first(std::min<std::uint64_t>(available(), end - offset_));
        advance(static_cast<std::size_t>(std::ranges::find_if(rest, interesting) - rest.begin()));
        fill(look_ahead);
    } while (available() > 0 && offset_ < end && !begins_anywhere(0) && !only_id3v1_is_left(0));
    in_place_ = false;
    return {begin, offset_ - begin, header, false, tag, std::span(gap_head_).first(head)};
}

void frame_scanner::advance(std::size_t bytes) {
    begin_ += bytes;
    offset_ += bytes;
}

} // namespace tools
