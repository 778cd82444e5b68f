#include "encode_loop.hpp"

#include "failure.hpp"
#include "vela_enc_mp1a/encoder.h"

namespace velaenc {
namespace {

/// One encoder from New to Free.
class encoder {
  public:
    encoder(const mpeg_a_settings &settings, const pcm_shape &shape, bufstream *output)
        // Messages are not asked for: the rules have been checked, and the output explains its errors.
        : handle_(mpegOutAudioNew(nullptr, &settings, 0, static_cast<std::int32_t>(shape.format),
                                  shape.rate)) {
        if (handle_ == nullptr) throw failure(exit_code::internal, "no memory for the encoder");
        if (mpegOutAudioInit(handle_, output) == 0) return;
        mpegOutAudioFree(handle_);
        throw failure(exit_code::internal, "the encoder cannot be initialised");
    }
    ~encoder() { mpegOutAudioFree(handle_); }
    encoder(const encoder &) = delete;
    encoder &operator=(const encoder &) = delete;

    bool put(std::span<const std::byte> pcm) noexcept {
        return mpegOutAudioPutBytes(handle_, pcm.data(), static_cast<std::uint32_t>(pcm.size())) == 0;
    }
    void finish() noexcept { mpegOutAudioDone(handle_, 0); }

  private:
    mpeg_a_encoder *handle_;
};

} // namespace

std::uint64_t encode(pcm_source &source, const mpeg_a_settings &settings, frame_writer &writer,
                     progress &shown, bool live) {
    encoder encoding(settings, source.shape(), writer.stream());
    std::uint64_t samples = 0;
    for (auto block = source.next_block(); !block.empty(); block = source.next_block()) {
        if (!encoding.put(block) || (live && !writer.flush())) return samples;
        samples += block.size() / source.shape().instant_bytes();
        shown.update(samples);
    }
    encoding.finish();
    writer.flush();
    return samples;
}

} // namespace velaenc
