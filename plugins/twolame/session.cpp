#include "session.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace vela_twolame {
namespace {

float value_of(short sample) {
    return static_cast<float>(sample) * 0x1p-15f;
}
float value_of(float sample) {
    return sample;
}

} // namespace

session::session(const sound_shape &shape) : bufstream{}, shape_(shape) {
    request = lend;
    commit = accept;
    static_assert(sizeof block_ >= MPEG_A_MAX_FRAME_BYTES);
    chunk_size = [](bufstream *) { return uint32_t{sizeof block_}; };
    // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.UninitializedObject): bufstream{} clears all of its slots
    auxinfo = [](bufstream *, uint32_t, uint32_t, const void *, uint32_t) { return uint32_t{0}; };
}

session *session::create(const mpeg_a_settings &settings, int rate, const sound_shape &shape) {
    constexpr int float_samples = 4;
    void *const memory = std::malloc(sizeof(session));
    if (memory == nullptr) return nullptr;
    auto *const made = new (memory) session(shape);
    made->encoder_ = mpegOutAudioNew(nullptr, &settings, 0, float_samples, rate);
    if (made->encoder_ != nullptr && made->make_room(block_samples)
        && mpegOutAudioInit(made->encoder_, made) == 0)
        return made;
    destroy(made);
    return nullptr;
}

void session::destroy(session *old) {
    if (old == nullptr) return;
    mpegOutAudioFree(old->encoder_);
    std::free(old->bytes_);
    std::free(old);
}

/// One more frame may have been begun before.
bool session::make_room(std::size_t samples) {
    const std::size_t needed = filled_ + (samples / block_samples + 1) * MPEG_A_MAX_FRAME_BYTES;
    if (needed <= capacity_) return true;
    auto *const larger = static_cast<unsigned char *>(std::realloc(bytes_, needed));
    if (larger == nullptr) return false;
    bytes_ = larger;
    capacity_ = needed;
    return true;
}

template <class Sample>
bool session::put(const Sample *left, const Sample *right, std::size_t stride, std::size_t samples) {
    const bool mixes = shape_.channels_in > shape_.channels_out;
    if (shape_.channels_in == 1) right = left;
    while (samples > 0) {
        const std::size_t count = std::min(samples, block_samples);
        float *to = sound_;
        for (std::size_t i = 0; i < count; ++i, left += stride, right += stride) {
            const float first = shape_.gain[0] * value_of(*left);
            const float second = shape_.gain[1] * value_of(*right);
            *to++ = mixes ? 0.5f * first + 0.5f * second : first;
            if (shape_.channels_out == 2) *to++ = second;
        }
        if (mpegOutAudioPutBytes(encoder_, sound_, static_cast<uint32_t>((to - sound_) * sizeof *to))
            != 0)
            return false;
        samples -= count;
    }
    return true;
}

template bool session::put(const short *, const short *, std::size_t, std::size_t);
template bool session::put(const float *, const float *, std::size_t, std::size_t);

bool session::complete() {
    return mpegOutAudioPutBytes(encoder_, nullptr, 0) == 0;
}

int session::take(unsigned char *room, int size) {
    if (filled_ == 0) return 0;
    if (room == nullptr || size < 0 || filled_ > static_cast<std::size_t>(size)) return -1;
    std::memcpy(room, bytes_, filled_);
    const auto taken = static_cast<int>(filled_);
    filled_ = 0;
    return taken;
}

uint8_t *session::lend(bufstream *self, uint32_t n) {
    auto &own = *static_cast<session *>(self);
    return n <= sizeof own.block_ ? own.block_ : nullptr;
}

uint32_t session::accept(bufstream *self, uint32_t n) {
    auto &own = *static_cast<session *>(self);
    if (own.capacity_ - own.filled_ < n) return 0;
    std::memcpy(own.bytes_ + own.filled_, own.block_, n);
    own.filled_ += n;
    return n;
}

} // namespace vela_twolame
