#include "frame_writer.hpp"

#include <cstring>

namespace velaenc {
namespace {

/// Larger than any frame, so that a frame never comes in two pieces.
constexpr std::uint32_t chunk = 4096;
constexpr std::size_t buffer_bytes = 64 * chunk;

} // namespace

frame_writer::frame_writer(output_file &file, timestamp_list *list)
    : bufstream{}, file_(file), list_(list), buffer_(buffer_bytes) {
    request = lend;
    commit = take;
    chunk_size = chunk_bytes;
    auxinfo = note;
}

bool frame_writer::flush() noexcept {
    if (works_) works_ = file_.write(std::as_bytes(std::span(buffer_).first(filled_))) == 0;
    filled_ = 0;
    return works_;
}

std::uint8_t *frame_writer::lend(bufstream *self, std::uint32_t n) noexcept {
    auto &writer = static_cast<frame_writer &>(*self);
    if (writer.filled_ + n > writer.buffer_.size()) writer.flush();
    const bool fits = writer.works_ && n <= writer.buffer_.size();
    return fits ? writer.buffer_.data() + writer.filled_ : nullptr;
}

/// A full buffer is written here already: the encoder takes a short commit without a word, while it
/// prints a line of its own about a refused block.
std::uint32_t frame_writer::take(bufstream *self, std::uint32_t n) noexcept {
    auto &writer = static_cast<frame_writer &>(*self);
    writer.filled_ += n;
    if (writer.filled_ + chunk > writer.buffer_.size()) writer.flush();
    return writer.works_ ? n : 0;
}

std::uint32_t frame_writer::chunk_bytes(bufstream *) noexcept {
    return chunk;
}

std::uint32_t frame_writer::note(bufstream *self, std::uint32_t, std::uint32_t id, const void *data,
                                 std::uint32_t size) noexcept {
    auto &writer = static_cast<frame_writer &>(*self);
    frame_info info;
    if (id != MPEG_A_FRAME_INFO || size < sizeof info) return 0;
    std::memcpy(&info, data, sizeof info);
    if (writer.list_ != nullptr)
        writer.list_->add(writer.frames_, writer.bytes_, info.length, info.time_stamp);
    writer.bytes_ += info.length;
    ++writer.frames_;
    return 0;
}

} // namespace velaenc
