// velainfo's command line as a record.
#pragma once

#include "velainfo/expectation.hpp"

#include <optional>
#include <string>
#include <vector>

namespace tools {

/// What is not asked for is empty or false.
struct info_options {
    std::vector<std::string> inputs; ///< files, with `recursive` folders too
    std::vector<std::string> lists;  ///< files of names, a line each; "-": standard input
    bool recursive;
    bool frames, json, brief;
    bool sound;       ///< measure it
    bool diff;        ///< of the two inputs
    std::string html; ///< file to write; empty for none
    bool overwrite;
    std::string source; ///< the original; empty for none
    std::string trace;  ///< velaenc's; empty for none
    std::optional<int> preset;
    std::vector<expectation> expected;
};

/// Streams that a page draws one above the other, at most.
inline constexpr std::size_t most_drawn = 40;

/// Prints help and version itself; then there is no result.
/// @throws failure
std::optional<info_options> read_info_options(int argc, char **argv);

} // namespace tools
