// A chunk of a WAV file, as it is read from one and written to another.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tools {

using byte_list = std::vector<std::byte>;

struct wav_chunk {
    std::string name; ///< four characters
    byte_list contents;
    bool is_whole = true; ///< false: too long to be kept in memory, or cut off
};

} // namespace tools
