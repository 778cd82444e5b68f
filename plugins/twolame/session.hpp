// One encoder, the sound on its way in and the frames on their way out.
#pragma once

#include "vela_enc_mp1a/encoder.h"

#include <cstddef>

namespace vela_twolame {

/// How input becomes the stream's channels.
struct sound_shape {
    int channels_in, channels_out;
    float gain[2]; ///< of left and right
};

class session : private bufstream {
  public:
    /// @return null when memory is out or there is no such encoder
    static session *create(const mpeg_a_settings &settings, int rate, const sound_shape &shape);
    static void destroy(session *old);

    int channels_in() const { return shape_.channels_in; }

    /// Makes room for the frames that so many samples a channel complete; the sound's and the encoder's are
    /// there from the start.
    /// @return false when memory is out
    bool make_room(std::size_t samples);

    /// @param left, right  samples that lie `stride` apart; `right` is not read where there is one channel
    /// @return false when the encoder has failed
    template <class Sample>
    bool put(const Sample *left, const Sample *right, std::size_t stride, std::size_t samples);

    /// Completes the frame that has been begun, if one has, with silence.
    bool complete();

    /// Everything that is finished, if it fits into so many bytes.
    /// @return bytes, or -1 when it does not fit; it waits then
    int take(unsigned char *room, int size);

  private:
    explicit session(const sound_shape &shape);
    static uint8_t *lend(bufstream *self, uint32_t n);
    static uint32_t accept(bufstream *self, uint32_t n);

    static constexpr std::size_t block_samples = 1152;
    sound_shape shape_;
    mpeg_a_encoder *encoder_ = nullptr;
    unsigned char *bytes_ = nullptr; ///< finished frames
    std::size_t filled_ = 0, capacity_ = 0;
    uint8_t block_[2048];            ///< what the encoder is lent, for a frame at a time
    float sound_[2 * block_samples]; ///< a part of the input, as the encoder takes it
};

} // namespace vela_twolame
