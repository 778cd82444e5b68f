// The SHA-256 of a finished file.
#pragma once

#include <string>

namespace tools {

/// 64 hexadecimal digits.
/// @throws failure when the file cannot be read
std::string sha256_of(const std::string &path);

} // namespace tools
