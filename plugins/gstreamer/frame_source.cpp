#include "frame_source.hpp"

#include "settings/record.hpp"

namespace velamp2 {

frame_source::frame_source(const mpeg_a_settings &settings, int sample_bytes, int rate)
    : bufstream{},
      frame_input_(static_cast<std::size_t>(tools::samples_of_frame(settings)
                                            * tools::channels_of(settings) * sample_bytes)),
      block_{}, encoder_(mpegOutAudioNew(nullptr, &settings, 0, sample_bytes, rate)) {
    request = lend;
    commit = take;
    chunk_size = [](bufstream *) { return block_size; };
    auxinfo = [](bufstream *, std::uint32_t, std::uint32_t, const void *, std::uint32_t) {
        return std::uint32_t{0};
    };
    mpegOutAudioInit(encoder_.get(), this);
}

bool frame_source::put(std::span<const std::uint8_t> pcm) {
    make_room(pcm.size() / frame_input_ + 1); // one that was pending before
    return mpegOutAudioPutBytes(encoder_.get(), pcm.data(), static_cast<std::uint32_t>(pcm.size()))
           == 0;
}

void frame_source::finish() {
    make_room(1);
    mpegOutAudioDone(encoder_.get(), 0);
    mpegOutAudioInit(encoder_.get(), this);
}

void frame_source::restart() noexcept {
    frames_.clear();
    mpegOutAudioInit(encoder_.get(), this);
}

/// The callbacks must find their memory: nothing may be thrown through the library.
void frame_source::make_room(std::size_t frames) {
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
