// Coding tables of ISO/IEC 11172-3 and 13818-3 in the form in which they are printed there. They share
// nothing with the encoder's, which they judge.
#pragma once

#include <span>

namespace tools {

/// The quantizers that a subband may choose from, by allocation index; steps[0] is 0.
struct quantizers {
    int alloc_bits;
    std::span<const int> steps;
};

/// Layer I: every subband the same. Layer II: Tables 3-B.2a to 3-B.2d, `table` 'a' to 'd', and 'e' for
/// Table B.1 of 13818-3.
const quantizers &quantizers_of(int layer, char table, int subband);

/// Coded subbands: 32 in Layer I, where `table` is ignored.
int sblimit_of(int layer, char table);

/// The Layer II table of a stream: the conditions above Tables 3-B.2a to 3-B.2d; 'e' below 32000 Hz.
char table_of(int rate, int kbps_per_channel);

/// One code word for three samples (Table 3-B.4), and the bits of a code word, grouped or not.
bool is_grouped(int layer, int steps);
int code_bits_of(int layer, int steps);

/// Table 3-B.1, i = 0..62, to the digits printed there.
double scalefactor(int i);

/// 2.4.2.3 of both parts, kbit/s for index 1..14. Version 1 is 11172-3, version 2 the lower rates.
int bitrate_of(int layer, int index, int version = 1);

/// scale factors sent per scfsi, 2.4.2.7
inline constexpr int sent_per_scfsi[4] = {3, 2, 1, 2};

} // namespace tools
