// Coding tables of ISO/IEC 11172-3 in the form in which they are printed there.
#pragma once

#include <vector>

namespace oracle {

/// The quantizers that a subband may choose from, by allocation index; steps[0] is 0.
struct quantizers {
    int alloc_bits;
    std::vector<int> steps;
};

/// Layer I: every subband the same. Layer II: Tables 3-B.2a to 3-B.2d, `table` 'a' to 'd'.
const quantizers &quantizers_of(int layer, char table, int subband);

/// Coded subbands: 32 in Layer I, where `table` is ignored.
int sblimit_of(int layer, char table);

/// The Layer II table of a stream: the conditions above Tables 3-B.2a to 3-B.2d.
char table_of(int rate, int kbps_per_channel);

/// Signal-to-noise ratio in dB by steps, Table C.5; 0 for no steps.
double snr_of(int steps);

/// One code word for three samples (Table 3-B.4), and the bits of a code word, grouped or not.
bool is_grouped(int layer, int steps);
int code_bits_of(int layer, int steps);

/// Table 3-B.1, i = 0..62, to the digits printed there.
double scalefactor(int i);

/// 2.4.2.3.
int bitrate_of(int layer, int index);

/// scale factors sent per scfsi, 2.4.2.7
inline constexpr int sent_per_scfsi[4] = {3, 2, 1, 2};

} // namespace oracle
