// Counts what goes through the process's malloc; operator new ends up there too.
#pragma once

namespace mp1a_test {

/// Allocations by this thread since its start; -1 in builds with a sanitizer, which brings its own
/// malloc.
long allocations();

} // namespace mp1a_test
