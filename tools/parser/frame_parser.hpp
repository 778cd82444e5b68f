// Reads a frame by the syntax of ISO/IEC 11172-3, 2.4.1, and insists on every rule.
#pragma once

#include "parser/frame_header.hpp"

#include <cstdint>
#include <span>
#include <string_view>

namespace tools {

/// What makes a frame damaged: bits of parsed_frame::faults.
enum frame_fault : unsigned {
    fault_length = 1,       ///< no header, or another length than its own
    fault_emphasis = 2,     ///< the reserved emphasis
    fault_allocation = 4,   ///< the forbidden allocation of Layer I
    fault_crc = 8,          ///< the CRC is wrong
    fault_scalefactor = 16, ///< scale factor 63
    fault_overrun = 32,     ///< more sample bits than the frame has
    fault_code = 64,        ///< a sample code of all ones
    fault_group = 128,      ///< a code word beyond steps^3
};

/// What decoders accept although an encoder should not write it: bits of parsed_frame::remarks.
enum frame_remark : unsigned {
    remark_extension = 1, ///< mode extension outside joint stereo
    remark_padding = 2,   ///< padding although frames are whole
    remark_ancillary = 4, ///< the bits after the samples are not all zero
    remark_bitrate = 8,   ///< a bitrate that Layer II does not allow in this mode (2.4.2.3)
};

/// The text of the lowest bit.
std::string_view fault_text(unsigned faults);
std::string_view remark_text(unsigned remarks);

/// Bits of a frame by purpose; they add up to its length.
struct bit_shares {
    int header, crc, allocation, scfsi, scalefactors, samples;
    int rest; ///< after the samples: unused, or ancillary data
};

struct parsed_frame : stream_header {
    unsigned faults, remarks;
    int parts, sblimit;
    int bound;               ///< first shared subband; sblimit without intensity stereo
    int sent_crc, right_crc; ///< as transmitted, as computed; with `crc` only
    bit_shares bits;
    int allocation[2][32], steps[2][32], scfsi[2][32], scalefactor[2][3][32];

    /// The first rule that the frame breaks. `allowed` remarks break none.
    std::string_view broken_rule(unsigned allowed = remark_bitrate) const {
        return faults != 0 ? fault_text(faults) : remark_text(remarks & ~allowed);
    }
    int coded_channels(int sb) const { return sb < bound ? channels() : 1; }
};

/// Sample codes: [channel][12 * part + sample][subband]; channel 0 holds what both share.
struct sample_codes {
    std::uint16_t code[2][36][32] = {};
};

/// @param bytes  exactly one frame; anything else is fault_length
/// @param codes  receives the sample codes, 0 where nothing is allocated; may be null. Without faults
///               they are valid, whatever else is checked with and without it.
parsed_frame parse_frame(std::span<const std::uint8_t> bytes, sample_codes *codes = nullptr);

/// A requantized sample before its scale factor, -1 < x < 1 (2.4.3.2): the middle of the code's
/// interval.
inline double fraction_of(int code, int steps) {
    return (2.0 * code + 1 - steps) / steps;
}

} // namespace tools
