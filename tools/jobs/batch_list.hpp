// The files of a batch: which inputs there are, and where the output of each belongs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tools {

/// Every N-th file, by a hash of its name below the folder that it was found in; so machines that mount
/// that folder at different places agree.
struct batch_shard {
    std::uint64_t index = 1; ///< 1..count
    std::uint64_t count = 1;
};

struct batch_plan {
    std::vector<std::string> names; ///< files and, with `recursive`, folders
    std::vector<std::string> lists; ///< files of names; "-": standard input
    bool zero_ended = false;        ///< names in lists end with a zero byte, not with a line
    bool recursive = false;
    std::string base;    ///< files below it keep their folders; empty: the current one, for lists only
    std::string folder;  ///< of the outputs
    std::string pattern; ///< of an output's name below it
    std::string extension; ///< "mp2"
    batch_shard shard;
};

struct batch_file {
    std::string input;
    std::string output;  ///< empty: none, see `error`
    std::uint64_t bytes; ///< of the input
    std::string error;   ///< not empty: why it cannot be encoded; the name comes first
};

struct batch_contents {
    std::vector<batch_file> files; ///< of this shard
    std::size_t others;            ///< found, and no sound; of all shards
    std::size_t linked_folders;    ///< found, and not entered
};

/// Fields of a pattern, for the help.
inline constexpr const char *pattern_fields = "{dir} {stem} {name} {ext}";

/// Finds the inputs in the order of the plan and names their outputs.
/// @throws failure  when the plan makes no sense or finds nothing at all, or when two inputs would be
///                  written to one output or an input would be overwritten
batch_contents list_files(const batch_plan &plan);

} // namespace tools
