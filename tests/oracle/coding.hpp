// The coding steps of ISO/IEC 11172-3, C.1.5, as they are worded: one search per decision.
#pragma once

namespace oracle {

/// C.1.5.1.4: the smallest scale factor not below the maximum, by looking at every one.
int scalefactor_index(double maximum);

/// C.1.5.2.5, Table C.4. Returns scfsi and changes the three indexes to what the decoder will use.
int select_scalefactors(int (&index)[3]);

/// C.1.5.1.7 and C.1.5.2.6: A x + B, its most significant bits, the first of them inverted; limited to
/// the highest code.
int quantize(int layer, double x, int steps);

struct allocation_problem {
    int layer, channels;
    bool crc, joint; ///< joint: joint stereo is configured
    char table;      ///< Layer II
    double smr[2][32];
    int scfsi[2][32];
    int budget; ///< bits of the frame
};

struct allocation_answer {
    int mode = 0, extension = 0; ///< meaningful when joint stereo is configured
    int bound = 0;
    int allocation[2][32] = {};
    int left = 0;
};

/// The choice of the joint stereo bound, then C.1.5.1.6 (Layer I) or C.1.5.2.7 (Layer II).
allocation_answer allocate(const allocation_problem &problem);

} // namespace oracle
