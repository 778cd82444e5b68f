// What a path given for an output means, found out before anything is encoded.
#pragma once

#include <optional>
#include <string>
#include <sys/stat.h>

namespace tools {

/// How a file that is already there is treated.
struct output_rules {
    bool overwrite = false;  ///< replace whatever it is
    bool no_clobber = false; ///< replace nothing
    bool sync = true;        ///< wait until data and name are on the disk
    /// Whether a file that begins like this may be replaced unasked, and what such files are called.
    bool (*is_own)(const std::string &head) = nullptr;
    const char *own = "";
};

/// A list of the program's own.
bool is_timestamp_list(const std::string &head);

enum class output_way {
    descriptor, ///< one that is open already: standard output, /dev/stdout, /dev/fd/N
    direct,     ///< a pipe or a device
    renamed,    ///< a temporary file beside the target gets its name
    copied,     ///< the folder takes no new file: the target's contents are replaced at the end
};

struct output_target {
    std::string name; ///< as messages call it
    std::string path; ///< links followed; empty for a descriptor
    output_way way = output_way::renamed;
    int descriptor = -1;
    std::optional<struct stat> present; ///< what is there now
};

/// @param path   "-" is standard output
/// @param input  status of the input, which must not be the same file
/// @throws failure  what stands in the way, a folder that does not take the file included
output_target find_target(const std::string &path, const struct stat &input, const output_rules &rules);

/// What is wrong, and what would help.
std::string explain_errno(int error);

} // namespace tools
