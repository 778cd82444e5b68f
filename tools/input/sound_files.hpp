// Sound files below a folder, known by their names and by what is in them.
#pragma once

#include <functional>
#include <string>

namespace tools {

/// ".wav" of "x.WAV"; empty where a name has none.
std::string lower_extension(const std::string &path);

/// Whether the name ends as those of sound files do, of films too: "x.WAV", "x.mkv".
bool has_sound_name(const std::string &path);

/// Whether a file is one to encode: it has the name of a sound file, begins like one, or a reader of this
/// program makes sound of it. So does one that cannot be opened, and one that is damaged: who encodes it
/// says why not.
bool is_sound_file(const std::string &path);

/// What a walk tells, each with a path that begins with the folder's own.
struct walk_listener {
    std::function<void(const std::string &path)> sound;
    std::function<void(const std::string &path)> other; ///< a file that is no sound

    std::function<void(const std::string &path)> linked; ///< a link to a folder

    /// What cannot be read, with the reason, which follows the path in a sentence.
    std::function<void(const std::string &path, const std::string &why)> unreadable;
};

/// Goes through a folder and those in it, names in the order of their bytes. Links to folders are not
/// followed, so that the walk ends; links to files are.
/// @param left_out  a folder that is not entered; empty: none
void walk(const std::string &folder, const std::string &left_out, const walk_listener &listener);

} // namespace tools
