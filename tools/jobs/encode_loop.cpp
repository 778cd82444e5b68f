#include "jobs/encode_loop.hpp"

#include "jobs/engine_encoder.hpp"
#include "jobs/stream_encoder.hpp"

namespace tools {
namespace {

/// The shortest frame of PCM has Layer I's number of 16-bit samples of one channel.
constexpr std::size_t most_frames_in_block = block_bytes / (MPEG_A_LAYER1_SAMPLES * 2) + 1;

template <class Encoder>
encoded_sound encode_with(Encoder &encoder, pcm_source &source, frame_writer &writer,
                          progress_listener &shown) {
    encoded_sound total;
    for (auto block = source.next_block(); !block.empty(); block = source.next_block()) {
        encoder.put(block);
        total.samples += block.size() / source.shape().instant_bytes();
        total.clipped.add(block, source.shape().format);
        if (!writer.write(encoder.output())) return total;
        shown.update(total.samples);
    }
    encoder.finish();
    writer.write(encoder.output());
    return total;
}

} // namespace

encoded_sound encode(pcm_source &source, const mpeg_a_settings &settings, frame_writer &writer,
                     progress_listener &shown) {
    stream_encoder encoder(settings, source.shape(), most_frames_in_block);
    return encode_with(encoder, source, writer, shown);
}

encoded_sound encode_observed(pcm_source &source, const mpeg_a_settings &settings, frame_writer &writer,
                              progress_listener &shown, const vela::frame_observer &observer) {
    stream_encoder encoder(settings, source.shape(), most_frames_in_block);
    encoder.observe(observer);
    return encode_with(encoder, source, writer, shown);
}

encoded_sound encode_through_engine(pcm_source &source, const mpeg_a_settings &settings,
                                    frame_writer &writer, progress_listener &shown) {
    engine_encoder encoder(settings, source.shape(), most_frames_in_block);
    return encode_with(encoder, source, writer, shown);
}

} // namespace tools
