#pragma once

#include "vela_enc_mp1a/encoder.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace velamp2 {

/// What happens to the sound for the decoder's delay.
struct sound_shift {
    bool drops;   ///< as many samples at the beginning of a stream
    bool appends; ///< as many samples of silence at its end
};

/// One encoder and the memory that it writes its frames to.
class frame_source : private bufstream {
  public:
    /// @param settings      that judge() finds usable
    /// @param sample_bytes  2 or 3: integers, 4: float
    frame_source(const mpeg_a_settings &settings, int sample_bytes, int rate, sound_shift shift);
    frame_source(const frame_source &) = delete;
    frame_source &operator=(const frame_source &) = delete;

    /// False: memory is out.
    bool is_ready() const noexcept { return encoder_ != nullptr; }

    /// Encodes; frames() then are those that the samples completed.
    /// @return false when the encoder failed
    bool put(std::span<const std::uint8_t> pcm);

    /// Appends what the shift asks for, completes the pending frame with silence, if there is one, and
    /// begins a new stream; frames() are what comes of it.
    void finish();

    /// Drops what is pending and begins a new stream; frames() stay as they are.
    void restart() noexcept;

    /// Valid until the next call.
    const std::vector<std::span<const std::uint8_t>> &frames() const noexcept { return frames_; }

  private:
    void make_room(std::size_t input);
    bool encode(std::span<const std::uint8_t> pcm) noexcept;
    static std::uint8_t *lend(bufstream *self, std::uint32_t n) noexcept;
    static std::uint32_t take(bufstream *self, std::uint32_t n) noexcept;

    /// More than the longest frame takes, so that one commit is one frame.
    static constexpr std::uint32_t block_size = 2048;
    static_assert(block_size > MPEG_A_MAX_FRAME_BYTES);

    struct release {
        void operator()(mpeg_a_encoder *encoder) const noexcept { mpegOutAudioFree(encoder); }
    };
    std::size_t frame_input_; ///< bytes of input that a frame takes
    std::size_t delay_input_; ///< bytes of input in the decoder's delay
    sound_shift shift_;
    std::size_t left_to_drop_ = 0;               ///< bytes of this stream's input
    bool has_sound_ = false;                     ///< whether this stream has any input
    std::array<std::uint8_t, block_size> block_; ///< what the encoder is lent, again and again
    std::vector<std::uint8_t> bytes_;
    std::vector<std::span<const std::uint8_t>> frames_;
    std::unique_ptr<mpeg_a_encoder, release> encoder_;
};

} // namespace velamp2
