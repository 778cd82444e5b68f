// Reads a frame by the syntax of ISO/IEC 11172-3, 2.4.1, and insists on every rule.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace oracle {

struct parsed_frame {
    std::string error; ///< the first rule that the frame breaks; empty for a legal frame
    int layer = 0, crc = 0, kbps = 0, rate = 0, padding = 0, private_bit = 0, mode = 0,
        mode_extension = 0, copyright = 0, original = 0, emphasis = 0;
    int channels = 0, parts = 0, sblimit = 0;
    int bound = 0;    ///< first shared subband; sblimit without intensity stereo
    int stuffing = 0; ///< bits at the end, all zero
    int allocation[2][32] = {}, steps[2][32] = {}, scfsi[2][32] = {}, scalefactor[2][3][32] = {};
    double fraction[2][3][12][32] = {}; ///< requantized samples before the scale factor, 2.4.3.2
};

/// @param bytes  exactly one frame
parsed_frame parse_frame(std::span<const std::uint8_t> bytes);

} // namespace oracle
