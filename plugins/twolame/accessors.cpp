// twolame_set_... and twolame_get_...: what was set is stored, and what cannot be is refused.
#include "options.hpp"

#include <cmath>

namespace vela_twolame {
namespace {

template <class Value>
bool any(Value) {
    return true;
}
bool is_verbosity(int value) {
    return value >= 0 && value <= 10;
}
bool is_mode(TWOLAME_MPEG_mode value) {
    return value >= TWOLAME_AUTO_MODE && value <= TWOLAME_MONO;
}
bool is_version(TWOLAME_MPEG_version value) {
    return value >= TWOLAME_MPEG_UNKNOWN && value <= TWOLAME_MPEG1;
}
bool is_padding(TWOLAME_Padding value) {
    return value == TWOLAME_PAD_NO || value == TWOLAME_PAD_ALL;
}
bool is_emphasis(TWOLAME_Emphasis value) {
    return value == TWOLAME_EMPHASIS_N || value == TWOLAME_EMPHASIS_5 || value == TWOLAME_EMPHASIS_C;
}
bool is_one_or_two(int value) {
    return value == 1 || value == 2;
}
bool is_not_negative(int value) {
    return value >= 0;
}
bool is_scale(float value) {
    return std::isfinite(value) && value >= 0;
}
bool is_level(float value) {
    return std::isfinite(value);
}

} // namespace
} // namespace vela_twolame

using namespace vela_twolame;

/// A pair of functions over a field.
#define VELA_PAIR(NAME, TYPE, FIELD, IS_RIGHT)                                                         \
    int twolame_set_##NAME(twolame_options *glopts, TYPE value) {                                      \
        if (glopts == nullptr || !(IS_RIGHT)(value)) return -1;                                        \
        glopts->wishes.FIELD = value;                                                                  \
        return 0;                                                                                      \
    }                                                                                                  \
    TYPE twolame_get_##NAME(twolame_options *glopts) {                                                 \
        return glopts != nullptr ? glopts->wishes.FIELD : decltype(glopts->wishes.FIELD){};            \
    }

VELA_PAIR(verbosity, int, verbosity, is_verbosity)
VELA_PAIR(mode, TWOLAME_MPEG_mode, mode, is_mode)
VELA_PAIR(version, TWOLAME_MPEG_version, version, is_version)
VELA_PAIR(psymodel, int, psymodel, any)
VELA_PAIR(num_channels, int, num_channels, is_one_or_two)
VELA_PAIR(scale, float, scale, is_scale)
VELA_PAIR(scale_left, float, scale_left, is_scale)
VELA_PAIR(scale_right, float, scale_right, is_scale)
VELA_PAIR(in_samplerate, int, in_samplerate, is_not_negative)
VELA_PAIR(bitrate, int, bitrate, any)
VELA_PAIR(brate, int, bitrate, any)
VELA_PAIR(padding, TWOLAME_Padding, padding, is_padding)
VELA_PAIR(energy_levels, int, energy_levels, any)
VELA_PAIR(num_ancillary_bits, int, num_ancillary_bits, is_not_negative)
VELA_PAIR(emphasis, TWOLAME_Emphasis, emphasis, is_emphasis)
VELA_PAIR(error_protection, int, error_protection, any)
VELA_PAIR(copyright, int, copyright, any)
VELA_PAIR(original, int, original, any)
VELA_PAIR(extension, int, extension, any)
VELA_PAIR(VBR, int, vbr, any)
VELA_PAIR(VBR_level, float, vbr_level, is_level)
VELA_PAIR(VBR_q, float, vbr_level, is_level)
VELA_PAIR(ATH_level, float, ath_level, is_level)
VELA_PAIR(VBR_max_bitrate_kbps, int, vbr_max_bitrate_kbps, any)
VELA_PAIR(quick_mode, int, quick_mode, any)
VELA_PAIR(quick_count, int, quick_count, any)
VELA_PAIR(DAB, int, dab, any)
VELA_PAIR(DAB_xpad_length, int, dab_xpad_length, any)
VELA_PAIR(DAB_crc_length, int, dab_crc_length, any)

int twolame_set_out_samplerate(twolame_options *glopts, int samplerate) {
    if (glopts == nullptr || samplerate < 0) return -1;
    glopts->wishes.out_samplerate = samplerate;
    return 0;
}

/// After 0 the input's, which GStreamer's element relies on.
int twolame_get_out_samplerate(twolame_options *glopts) {
    return glopts != nullptr ? glopts->wishes.rate() : 0;
}

int twolame_set_freeformat(twolame_options *glopts, int freef) {
    if (glopts == nullptr) return -1;
    glopts->wishes.free_format = freef;
    return 0;
}
