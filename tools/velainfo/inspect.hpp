// The work of a run: every stream read, reported and, where wanted, compared and drawn.
#pragma once

#include "velainfo/options.hpp"

namespace tools {

/// @return the exit code: 0, or 2 or 3 as the worst of the streams asks for
/// @throws failure when the page cannot be written
int inspect(const info_options &wanted);

} // namespace tools
