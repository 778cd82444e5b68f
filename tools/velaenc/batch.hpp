// A run over many files.
#pragma once

#include "common/failure.hpp"
#include "velaenc/options.hpp"

namespace tools {

/// Encodes every file of `wanted.batch`, several at a time. A file that fails does not stop the others.
/// @return success, or exit_code::batch when at least one file failed
/// @throws failure when the batch makes no sense or its report cannot be written
exit_code run_batch(const options &wanted);

} // namespace tools
