// A host's name lookup: message functions that keep their messages, allocators that count and fail.
#pragma once

#include "vela_enc_mp1a/encoder.h"

#include <string>
#include <vector>

namespace mp1a_test {

/// What the functions behind `lookup` see and do; reset() before use. One test at a time.
struct fake_host {
    std::vector<std::string> names;    ///< asked for, in order
    std::vector<std::string> messages; ///< as printed
    bool has_malloc = false, has_free = false, malloc_fails = false;
    int mallocs = 0, frees = 0;

    static fake_host &reset();
    static void *lookup(const char *name);
};

} // namespace mp1a_test
