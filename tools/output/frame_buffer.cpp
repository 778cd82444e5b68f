#include "output/frame_buffer.hpp"

#include "vela_enc_mp1a/settings.h"

#include <cstring>
#include <utility>

namespace tools {
namespace {

/// Larger than any frame, so that a frame never comes in two pieces.
constexpr std::uint32_t announced_chunk = 4096;

} // namespace

frame_buffer::frame_buffer(std::size_t frames)
    : bufstream{}, bytes_(frames * MPEG_A_MAX_FRAME_BYTES + announced_chunk) {
    frames_.reserve(frames);
    request = lend;
    commit = take;
    chunk_size = chunk_bytes;
    auxinfo = note;
}

void frame_buffer::clear() noexcept {
    filled_ = 0;
    frames_.clear();
}

void frame_buffer::exchange(frame_buffer &other) noexcept {
    bytes_.swap(other.bytes_);
    std::swap(filled_, other.filled_);
    frames_.swap(other.frames_);
}

std::uint8_t *frame_buffer::lend(bufstream *self, std::uint32_t n) noexcept {
    auto &buffer = static_cast<frame_buffer &>(*self);
    const bool fits =
        buffer.frames_.size() < buffer.frames_.capacity() && n <= buffer.bytes_.size() - buffer.filled_;
    return fits ? buffer.bytes_.data() + buffer.filled_ : nullptr;
}

std::uint32_t frame_buffer::take(bufstream *self, std::uint32_t n) noexcept {
    static_cast<frame_buffer &>(*self).filled_ += n;
    return n;
}

std::uint32_t frame_buffer::chunk_bytes(bufstream *) noexcept {
    return announced_chunk;
}

std::uint32_t frame_buffer::note(bufstream *self, std::uint32_t, std::uint32_t id, const void *data,
                                 std::uint32_t size) noexcept {
    frame_info info;
    if (id != MPEG_A_FRAME_INFO || size < sizeof info) return 0;
    std::memcpy(&info, data, sizeof info);
    static_cast<frame_buffer &>(*self).frames_.push_back(info);
    return 0;
}

} // namespace tools
