// What a program has set, under the names of the interface.
#pragma once

#include <twolame.h>

namespace vela_twolame {

class session;

/// The interface's defaults.
struct wishes {
    int verbosity = 1;
    TWOLAME_MPEG_mode mode = TWOLAME_AUTO_MODE;
    TWOLAME_MPEG_version version = TWOLAME_MPEG1;
    int free_format = FALSE;
    int psymodel = 3;
    int num_channels = 2;                              ///< of the input
    float scale = 0, scale_left = 0, scale_right = 0;  ///< 0: 1
    int in_samplerate = 44100, out_samplerate = 44100; ///< Hz; 0 for the output: the input's
    int bitrate = 192;                                 ///< kbit/s
    TWOLAME_Padding padding = TWOLAME_PAD_NO;
    int energy_levels = FALSE;
    int num_ancillary_bits = 0;
    TWOLAME_Emphasis emphasis = TWOLAME_EMPHASIS_N;
    int error_protection = FALSE, copyright = FALSE, original = TRUE, extension = FALSE;
    int vbr = FALSE;
    float vbr_level = 5, ath_level = 0;
    int vbr_max_bitrate_kbps = 0;
    int quick_mode = FALSE, quick_count = 10;
    int dab = FALSE, dab_xpad_length = 0, dab_crc_length = 2;

    int rate() const { return out_samplerate != 0 ? out_samplerate : in_samplerate; }
};

} // namespace vela_twolame

/// The interface's handle.
struct twolame_options_struct {
    vela_twolame::wishes wishes;
    vela_twolame::session *session = nullptr; ///< after twolame_init_params()
};
