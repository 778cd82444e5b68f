#include "stream_settings.hpp"

#include "vela_enc_mp1a/encoder.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace vela_twolame {
namespace {

bool is_layer2_rate(int rate) {
    return rate == 32000 || rate == 44100 || rate == 48000;
}

/// @return 0 for a bitrate that Layer II does not have
int index_of(int kbit) {
    const auto &bitrates = mpeg_a_bitrates[1];
    int index = static_cast<int>(std::size(bitrates)) - 1;
    while (index > 0 && bitrates[index] != kbit)
        --index;
    return index;
}

/// What the interface has and this encoder does not.
struct refusal {
    bool (*applies)(const wishes &wished);
    const char *message;
};
constexpr refusal refusals[] = {
    {[](const wishes &w) { return w.version == TWOLAME_MPEG2 || (w.rate() > 0 && w.rate() <= 24000); },
     "the lower sampling rates of MPEG-2 cannot be encoded; 32000, 44100 and 48000 Hz can"},
    {[](const wishes &w) { return !is_layer2_rate(w.rate()); },
     "a sampling rate is 32000, 44100 or 48000 Hz"},
    {[](const wishes &w) { return w.in_samplerate != w.rate(); },
     "input and output have the same sampling rate here; resample before"},
    {[](const wishes &w) { return w.vbr != FALSE; }, "there is no variable bitrate; set a bitrate"},
    {[](const wishes &w) { return w.energy_levels != FALSE; }, "energy levels cannot be written"},
    {[](const wishes &w) { return w.num_ancillary_bits != 0; }, "ancillary bits cannot be written"},
    {[](const wishes &w) { return w.dab != FALSE; }, "the extensions of DAB cannot be written"},
    {[](const wishes &w) { return w.free_format != FALSE; }, "free format cannot be written"},
    {[](const wishes &w) { return index_of(w.bitrate) == 0; },
     "a bitrate is 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320 or 384 kbit/s"},
};

/// The model's number, over which the user's word goes.
/// @return false for a word that is none
bool choose_model(int psymodel, int32_t &model) {
    const bool asks_for_standard = psymodel == 1 || psymodel == 2;
    model = asks_for_standard ? MPEG_A_MODEL_STANDARD : MPEG_A_MODEL_TUNED;
    const char *word = std::getenv("VELA_MODEL");
    if (word == nullptr || *word == '\0') return true;
    const bool is_standard = std::strcmp(word, "standard") == 0;
    model = is_standard ? MPEG_A_MODEL_STANDARD : MPEG_A_MODEL_TUNED;
    return is_standard || std::strcmp(word, "tuned") == 0;
}

} // namespace

TWOLAME_MPEG_mode mode_of(const wishes &wished) {
    if (wished.mode != TWOLAME_AUTO_MODE) return wished.mode;
    return wished.num_channels == 1 ? TWOLAME_MONO : TWOLAME_STEREO;
}

bool settle(const wishes &wished, mpeg_a_settings &settings, char (&message)[message_bytes]) {
    for (const refusal &row : refusals) {
        if (!row.applies(wished)) continue;
        std::snprintf(message, sizeof message, "%s", row.message);
        return false;
    }
    settings = {};
    mpegOutAudioDefaults(&settings, MPEG_A_PRESET_NONE);
    settings.audio_mode = mode_of(wished); // the same numbers
    settings.audio_bitrate = index_of(wished.bitrate);
    settings.emphasis = wished.emphasis;
    settings.extension = wished.extension != FALSE;
    settings.error_protection = wished.error_protection != FALSE;
    settings.copyright = wished.copyright != FALSE;
    settings.original = wished.original != FALSE;
    if (!choose_model(wished.psymodel, settings.audio_model)) {
        std::snprintf(message, sizeof message, "VELA_MODEL should be standard or tuned");
        return false;
    }
    const int32_t code =
        mpegOutAudioChkSettings(nullptr, &settings, MPEG_A_PRESET_NONE, wished.rate(), 0, 0);
    if (code != 0)
        std::snprintf(message, sizeof message,
                      "%d kbit/s is too little for two channels; 64 is the least", wished.bitrate);
    return code == 0;
}

int frame_bytes(const wishes &wished) {
    const int rate = wished.rate();
    if (!is_layer2_rate(rate) || index_of(wished.bitrate) == 0) return 0;
    return (144000 * wished.bitrate + rate - 1) / rate;
}

} // namespace vela_twolame
