// What --help says around the list of options.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tools {

/// Names on the command line and what they stand for, in the order of the help.
template <class Value>
using choices = std::vector<std::pair<std::string, Value>>;

extern const char *const help_description;

/// With each preset's rates, as the library's own rules have them.
std::string help_footer();

} // namespace tools
