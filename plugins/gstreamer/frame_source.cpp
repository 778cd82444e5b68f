#include "frame_source.hpp"

#include "settings/record.hpp"

#include <algorithm>

namespace velamp2 {

frame_source::frame_source(const mpeg_a_settings &settings, int sample_bytes, int rate,
                           sound_shift shift)
    : bufstream{}, shift_(shift), block_{},
      encoder_(mpegOutAudioNew(nullptr, &settings, 0, sample_bytes, rate)) {
    const auto bytes =
        static_cast<std::size_t>(tools::channels_of(settings)) * static_cast<std::size_t>(sample_bytes);
    frame_input_ = bytes * static_cast<std::size_t>(tools::samples_of_frame(settings));
    delay_input_ = bytes * static_cast<std::size_t>(tools::decoder_delay(settings.audio_layer));
    request = lend;
    commit = take;
    chunk_size = [](bufstream *) { return block_size; };
    auxinfo = [](bufstream *, std::uint32_t, std::uint32_t, const void *, std::uint32_t) {
        return std::uint32_t{0};
    };
    restart();
}

bool frame_source::put(std::span<const std::uint8_t> pcm) {
    make_room(pcm.size());
    has_sound_ |= !pcm.empty();
    const std::size_t dropped = std::min(left_to_drop_, pcm.size());
    left_to_drop_ -= dropped;
    return encode(pcm.subspan(dropped));
}

void frame_source::finish() {
    static constexpr std::array<std::uint8_t, 8192> silence{}; // of 4-byte samples, of two channels
    const std::size_t appended = shift_.appends && has_sound_ ? delay_input_ - left_to_drop_ : 0;
    make_room(appended + frame_input_);
    encode(std::span(silence).first(appended));
    mpegOutAudioDone(encoder_.get(), 0);
    restart();
}

void frame_source::restart() noexcept {
    left_to_drop_ = shift_.drops ? delay_input_ : 0;
    has_sound_ = false;
    mpegOutAudioInit(encoder_.get(), this);
}

bool frame_source::encode(std::span<const std::uint8_t> pcm) noexcept {
    return pcm.empty()
           || mpegOutAudioPutBytes(encoder_.get(), pcm.data(), static_cast<std::uint32_t>(pcm.size()))
                  == 0;
}

/// The callbacks must find their memory: nothing may be thrown through the library.
/// @param input  bytes that come beside a frame begun before
void frame_source::make_room(std::size_t input) {
    const std::size_t frames = input / frame_input_ + 1;
    frames_.clear();
    bytes_.clear();
    frames_.reserve(frames);
    bytes_.reserve(frames * block_size);
}

std::uint8_t *frame_source::lend(bufstream *self, std::uint32_t n) noexcept {
    return n <= block_size ? static_cast<frame_source *>(self)->block_.data() : nullptr;
}

std::uint32_t frame_source::take(bufstream *self, std::uint32_t n) noexcept {
    auto &source = static_cast<frame_source &>(*self);
    const std::size_t begin = source.bytes_.size();
    source.bytes_.insert(source.bytes_.end(), source.block_.data(), source.block_.data() + n);
    source.frames_.emplace_back(source.bytes_.data() + begin, n);
    return n;
}

} // namespace velamp2
