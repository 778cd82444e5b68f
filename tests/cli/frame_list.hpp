// Takes a stream apart by its frame headers, ISO/IEC 11172-3, 2.4.1.3 and 2.4.2.3.
#pragma once

#include <string>
#include <vector>

namespace velaenc_test {

struct frame {
    std::size_t offset = 0, bytes = 0;
    int layer = 0, crc = 0, kbit = 0, rate = 0, private_bit = 0;
    int mode = 0, copyright = 0, original = 0, emphasis = 0;
};

/// Frames from the first byte to the last; none at all when anything else is between or after them.
std::vector<frame> frames_of(const std::string &stream);

} // namespace velaenc_test
