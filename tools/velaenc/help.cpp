#include "velaenc/help.hpp"

#include "common/counted.hpp"
#include "settings/names.hpp"
#include "settings/rules.hpp"
#include "vela_enc_mp1a/encoder.h"

namespace tools {

const char *const help_description =
    "velaenc: encodes audio as MPEG-1 Audio Layer I or II (ISO/IEC 11172-3).\n"
    "IN is an audio file (WAV, W64, RF64, AIFF, FLAC, Ogg, ...) of any sample rate, or what ffmpeg\n"
    "decodes where it is installed (mp4, m4a, mov, mkv, webm, wma, ac3, dts, wv, ape, ...).";

namespace {

constexpr const char *examples =
    "Examples:\n"
    "  velaenc song.flac                          song.mp2, 224 kbit/s\n"
    "  velaenc --preset dvd film.wav film.mp2     for a DVD: 48 kHz, CRC, 224 kbit/s\n"
    "  velaenc -b 384 -m joint in.wav -o out.mp2  joint stereo, 384 kbit/s\n"
    "  arecord -f dat -t wav | velaenc - - >a.mp2 a recording, until Ctrl-C\n"
    "\n";

constexpr const char *closing_words =
    "dvd-dual is DVD with dual channel allowed; --mode dual chooses it.\n"
    "\n"
    "Defaults: Layer II, the channels of IN, no CRC, 224 kbit/s for two channels and 112 for one "
    "(Layer I:\n"
    "384 and 192). A preset brings its own; in mono it starts at half of its bitrate and takes the "
    "next one\n"
    "that conforms; VCD, MicroMV and HDV have none for one channel, so both channels of a stereo\n"
    "stream get it. 16-bit and 24-bit input is encoded as such, everything else as 32-bit float.\n"
    "Of an option given twice the last one counts.\n"
    "\n"
    "What the stream cannot have is changed, and a note says so: other sample rates become the\n"
    "preset's or the next one above (libsoxr), three to eight channels are mixed to stereo by ITU-R\n"
    "BS.775 so that nothing clips. Nothing is dithered, and the level stays unless --gain or "
    "--loudness\n"
    "asks for another.\n"
    "\n"
    "Every decoder gives the sound out 481 samples late in Layer II (10 ms at 48 kHz), 545 in Layer "
    "I,\n"
    "and the end of IN may not come out at all. --align mends both; --flush-tail the second. A stream\n"
    "without them can be set right by the muxer: mplex -O 10ms, mkvmerge -y 0:-10 before the stream's\n"
    "name, ffmpeg -itsoffset -0.010021 before its -i.\n"
    "\n"
    "Time stamps count 27 MHz ticks and tell when a frame ends: the first one is the start plus the\n"
    "duration of one frame. The PTS of a frame is its begin in 90 kHz, 33 bits. Frames are numbered\n"
    "from 0.\n"
    "\n"
    "OUT appears under its name when it is complete. What is there already, or comes meanwhile, is\n"
    "replaced when it is empty or begins with two frames of MPEG-1 Layer I or II; anything else only\n"
    "with --overwrite. Pipes, devices and /dev/stdout are written directly.\n"
    "\n"
    "Exit codes:\n"
    "  0  success\n"
    "  1  the command line is wrong\n"
    "  2  the input is missing, unreadable, truncated, empty or has unusable channels\n"
    "  3  the output cannot be written\n"
    "  4  the settings or the sample rate cannot be encoded or do not conform to the preset\n"
    "  5  memory is out, the program is at fault, or --check has found the stream wrong\n"
    "  6  some of the files of a batch failed\n"
    "  128 + n  ended by signal n";

/// One line a preset: the rates that its rules take, and its defaults.
std::string preset_line(const named_value &preset) {
    mpeg_a_settings settings{};
    mpegOutAudioDefaults(&settings, preset.value);
    std::string rates;
    for (const int rate : rates_of_preset(preset.value))
        rates += (rates.empty() ? "" : ", ") + std::to_string(rate);
    return formatted("  %-9s %s Hz%s\n", preset.name, rates.c_str(),
                     settings.error_protection != 0 ? "; CRC" : "");
}

} // namespace

std::string help_footer() {
    std::string text = std::string(examples) + "Presets and the rates that they take:\n";
    for (const named_value &preset : preset_names)
        text += preset_line(preset);
    return text + closing_words;
}

} // namespace tools
