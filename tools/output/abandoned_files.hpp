// Temporary files of processes that were killed.
#pragma once

#include <string>

namespace tools {

/// Removes those of this program's temporary files in the folder that no process has locked, on this
/// machine or on another one.
void remove_abandoned(const std::string &folder) noexcept;

} // namespace tools
