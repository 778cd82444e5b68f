// The command line as a record.
#pragma once

#include "input/raw_format.hpp"
#include "settings/record.hpp"
#include "velaenc/batch_options.hpp"
#include "velaenc/sound_options.hpp"

#include <optional>
#include <string>

namespace tools {

/// What the user asked for. Fields without a value leave the choice to the preset and the input.
struct options : wishes {
    std::string input;      ///< "-": standard input
    std::string output;     ///< "-": standard output
    std::string timestamps; ///< empty: none
    std::string trace;      ///< empty: none

    std::string preset_name = "none";
    std::optional<std::int64_t> pts_offset;
    std::optional<int> pts_units;

    std::optional<bool> wave; ///< the stream in a WAV file, or bare; none: by the name of the output
    bool tags = false;        ///< an ID3 tag with what the input's says, in front of a bare stream
    sound_options sound;

    std::optional<raw_shape> raw; ///< shape of headerless input
    int stream = 1;               ///< of the sound streams in the input
    bool ignore_length = false;   ///< encode what is there, whatever the header says
    int jobs = 1;                 ///< threads that encode
    bool engine = false;          ///< encode through the plug-in interface
    bool overwrite = false;       ///< replace whatever is there
    bool no_clobber = false;      ///< replace nothing
    bool sync = true;             ///< wait until the files are on the disk
    bool check = false;           ///< decode the finished stream and hold it against the input
    bool quiet = false;
    bool force = false;

    std::optional<batch_options> batch; ///< many files; `input` and `output` are empty then
};

/// Whether OUT is a WAV file.
bool is_wave(const options &wanted);

/// Reads the command line. Help and version are printed here.
/// @return none when there is nothing to encode
/// @throws failure
std::optional<options> read_options(int argc, char **argv);

} // namespace tools
