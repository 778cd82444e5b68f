// Which streams a run is about.
#pragma once

#include "velainfo/options.hpp"

namespace tools {

/// Files as they were named, those of lists, and with -r those below folders, in the order of their names.
/// @throws failure when a list or a folder cannot be read, or when there is none
std::vector<std::string> list_inputs(const info_options &wanted);

} // namespace tools
