// Locks of whole files, between processes and, where the file system passes them on, between machines.
#pragma once

namespace tools {

/// Takes the lock for writing, which belongs to the open file and goes with its last descriptor.
/// @param wait  until whoever has it lets it go; else give up at once
/// @return false when somebody else has it, or when the file system has no locks
bool lock_file(int descriptor, bool wait) noexcept;

void unlock_file(int descriptor) noexcept;

} // namespace tools
