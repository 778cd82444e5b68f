// What a path given for an output means, found out before anything is encoded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace tools {

/// Reads a file at an offset; fewer bytes come at its end.
using file_view = std::function<std::size_t(std::uint64_t offset, std::span<std::byte> room)>;

bool begins_with(const file_view &file, std::string_view text);

/// How a file that is already there is treated.
struct output_rules {
    bool overwrite;  ///< replace whatever it is
    bool no_clobber; ///< replace nothing
    bool sync;       ///< wait until data and name are on the disk
    /// Whether a file may be replaced unasked, and what such files are called.
    bool (*is_own)(const file_view &file);
    const char *own;
};

/// Whether both are the same folder, device, pipe or file.
bool is_same_node(const struct stat &a, const struct stat &b) noexcept;

enum class output_way {
    direct,  ///< a descriptor that is open already, a pipe or a device
    renamed, ///< a temporary file beside the target gets its name
    copied,  ///< the folder takes no new file: the target's contents are replaced at the end
};

struct output_target {
    std::string name; ///< as messages call it
    std::string path; ///< links followed
    output_way way = output_way::renamed;
    std::optional<int> descriptor; ///< that is open already: standard output, /dev/stdout, /dev/fd/N
    std::optional<struct stat> present; ///< what is there now
    struct stat folder {};              ///< of a path
    std::string file;                   ///< its name there
};

/// @param path   "-" is standard output
/// @param input  status of the input, which must not be the same file
/// @throws failure  what stands in the way, a folder that does not take the file included
output_target find_target(const std::string &path, const struct stat &input, const output_rules &rules);

/// Looks once more at what is there under the path, which may have come or changed meanwhile.
/// @throws failure  when it must not be replaced
void look_again(output_target &target, const struct stat &input, const output_rules &rules);

/// Descriptors 0 to 2 that are closed become ones that fail, so that no file is opened in their place.
void occupy_closed_descriptors();

/// What is wrong, and what would help.
std::string explain_errno(int error);

} // namespace tools
