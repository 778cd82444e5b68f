// The function interface; its contract stands in vela_enc_mp1a/encoder.h.
#include "api/encoder.hpp"
#include "api/presets.hpp"
#include "api/validate.hpp"

std::int32_t mpegOutAudioDefaults(mpeg_a_settings *settings, std::int32_t preset) noexcept {
    if (settings != nullptr) vela::preset_defaults(*settings, preset, nullptr);
    return 0;
}

std::int32_t mpegOutAudioChkSettings(resource_lookup lookup, const mpeg_a_settings *settings,
                                     std::int32_t preset, std::int32_t sample_rate,
                                     std::int32_t options, std::intptr_t) noexcept {
    const mpeg_a_message_function err_printf = vela::message_function(lookup, "err_printf");
    if (settings == nullptr) {
        err_printf("A031:Invalid mpeg_a_settings parameter");
        return 2;
    }
    return vela::check_settings(err_printf, *settings, preset, sample_rate, options);
}

mpeg_a_encoder *mpegOutAudioNew(resource_lookup lookup, const mpeg_a_settings *settings, std::intptr_t,
                                std::int32_t pcm_format, std::int32_t sample_rate) noexcept {
    return mpeg_a_encoder::create(lookup, settings, pcm_format, sample_rate);
}

std::int32_t mpegOutAudioInit(mpeg_a_encoder *encoder, bufstream *output) noexcept {
    return encoder == nullptr ? 2 : encoder->init(output, vela::best_level());
}

std::int32_t mpegOutAudioPutBytes(mpeg_a_encoder *encoder, const void *data,
                                  std::uint32_t size) noexcept {
    return encoder == nullptr ? 2 : encoder->put_bytes(data, size);
}

std::int32_t mpegOutAudioDone(mpeg_a_encoder *encoder, std::int32_t abort) noexcept {
    return encoder == nullptr ? 0 : encoder->done(abort != 0);
}

void mpegOutAudioFree(mpeg_a_encoder *encoder) noexcept {
    mpeg_a_encoder::destroy(encoder);
}
