// Sound files below a folder, known by what is in them.
#pragma once

#include <functional>
#include <string>

namespace tools {

/// Whether a reader of this program makes sound of it. A file that cannot be opened counts, so that the
/// one who encodes it can say why not.
bool is_sound_file(const std::string &path);

/// What a walk tells, each with a path that begins with the folder's own.
struct walk_listener {
    std::function<void(const std::string &path)> sound;
    std::function<void(const std::string &path, const std::string &why)> unreadable_folder;
};

/// Goes through a folder and those in it, names in the order of their bytes. Links to folders are not
/// followed, so that the walk ends; links to files are.
/// @param left_out  a folder that is not entered; empty: none
void walk(const std::string &folder, const std::string &left_out, const walk_listener &listener);

} // namespace tools
