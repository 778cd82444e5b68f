// velainfo's command line as a record.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tools {

struct info_options {
    std::vector<std::string> inputs;
    bool frames = false, json = false;
    std::string html;   ///< file to write; empty for none
    std::string source; ///< the original; empty for none
    std::string trace;  ///< velaenc's; empty for none
    std::optional<int> preset;
    std::string preset_name;
};

/// Prints help and version itself; then there is no result.
/// @throws failure
std::optional<info_options> read_info_options(int argc, char **argv);

} // namespace tools
