// One encoder from New to Free, and the frames that come out of it.
#pragma once

#include "input/pcm_source.hpp"
#include "output/frame_buffer.hpp"
#include "vela_enc_mp1a/settings.h"

#include <cstdint>

struct mpeg_a_encoder;
namespace vela {
struct frame_observer;
}

namespace tools {

class stream_encoder {
  public:
    /// @param room  frames that may gather until somebody takes them out of output()
    /// @throws failure
    stream_encoder(const mpeg_a_settings &settings, const pcm_shape &shape, std::size_t room);
    ~stream_encoder();
    stream_encoder(const stream_encoder &) = delete;
    stream_encoder &operator=(const stream_encoder &) = delete;

    /// Encodes every frame that the samples complete.
    void put(std::span<const std::byte> pcm);

    /// Ends the stream: the frame that is still incomplete is encoded.
    void finish() noexcept;

    /// Frames of history that go_to() wants; there may be fewer at the start of the stream only.
    static const std::size_t history_frames;

    /// Goes on with a later frame, as if all frames before it had been encoded.
    /// @param frame    not below the number of frames passed so far
    /// @param history  PCM of the frames just before it
    void go_to(std::int64_t frame, std::span<const std::byte> history) noexcept;

    /// Passes every frame's decisions on.
    void observe(const vela::frame_observer &observer) noexcept;

    frame_buffer &output() noexcept { return output_; }

  private:
    frame_buffer output_;
    mpeg_a_encoder *handle_;
};

} // namespace tools
