// Decoding by a program that is nobody of ours: libmpg123.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <span>

namespace tools {

class stream_decoder {
  public:
    /// Hands on bytes of the stream, as many as there are; 0 at the end.
    using reader = std::function<std::size_t(std::span<std::byte> room)>;

    /// @param read  begins with a frame
    /// @throws failure when the library cannot be used
    stream_decoder(int rate, int channels, reader read);

    /// The next frame, interleaved with full scale 1.0, valid until the next call; empty at the end.
    /// @throws failure when the decoder complains
    std::span<const float> next_frame();

  private:
    struct closer {
        void operator()(void *handle) const noexcept;
    };
    std::unique_ptr<void, closer> handle_; ///< an mpg123_handle
    reader read_;
};

} // namespace tools
