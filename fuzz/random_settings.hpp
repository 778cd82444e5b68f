// Settings good and bad.
#pragma once

#include "byte_source.hpp"
#include "vela_enc_mp1a/encoder.h"

namespace fuzz {

inline mpeg_a_settings read_settings(byte_source &from) {
    mpeg_a_settings settings{};
    mpegOutAudioDefaults(&settings, from.about(0, 19));
    settings.audio_mode = from.about(0, 3);
    settings.audio_layer = from.about(1, 2);
    settings.audio_bitrate = from.about(1, 14);
    settings.emphasis = from.about(0, 3);
    settings.error_protection = from.about(0, 1);
    settings.extension = from.about(0, 1);
    settings.copyright = from.about(0, 1);
    settings.original = from.about(0, 1);
    settings.psych_model = from.about(0, 2);
    settings.pts_offset = from.about(-100, 100);
    settings.pts_units = from.about(0, 200);
    const int model = from.below(16);
    settings.audio_model = model < 8    ? std::int32_t{MPEG_A_MODEL_TUNED}
                           : model < 15 ? std::int32_t{MPEG_A_MODEL_STANDARD}
                                        : from.value<std::int32_t>();
    return settings;
}

} // namespace fuzz
