#include "jobs/stream_encoder.hpp"

#include "common/failure.hpp"
#include "vela_enc_mp1a/encoder.h"

// The one look behind the public headers. Only a program that owns the whole file can place an encoder
// in the middle of a stream, so the library does not export that, and the tool carries the core in
// itself.
#include "api/encoder.hpp"

namespace tools {

const std::size_t stream_encoder::history_frames = mpeg_a_encoder::history_frames;

stream_encoder::stream_encoder(const mpeg_a_settings &settings, const pcm_shape &shape,
                               std::size_t room)
    // Messages are not asked for: the rules have been checked.
    : output_(room), handle_(mpegOutAudioNew(nullptr, &settings, 0,
                                             static_cast<std::int32_t>(shape.format), shape.rate)) {
    if (handle_ == nullptr) throw failure(exit_code::internal, "no memory for the encoder");
    mpegOutAudioInit(handle_, output_.stream());
}

stream_encoder::~stream_encoder() {
    mpegOutAudioFree(handle_);
}

void stream_encoder::put(std::span<const std::byte> pcm) {
    if (mpegOutAudioPutBytes(handle_, pcm.data(), static_cast<std::uint32_t>(pcm.size())) != 0)
        throw std::logic_error("more frames than there is room for");
}

void stream_encoder::finish() noexcept {
    mpegOutAudioDone(handle_, 0);
}

void stream_encoder::go_to(std::int64_t frame, std::span<const std::byte> history) noexcept {
    handle_->position(frame, {reinterpret_cast<const std::uint8_t *>(history.data()), history.size()});
}

void stream_encoder::observe(const vela::frame_observer &observer) noexcept {
    handle_->observe(observer);
}

} // namespace tools
