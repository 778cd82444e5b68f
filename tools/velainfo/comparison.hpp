// A stream beside its original: level, error and noise-to-mask ratio of every subband.
#pragma once

#include "velainfo/stream_report.hpp"

#include <functional>
#include <string>

namespace tools {

struct comparison_totals {
    std::string name; ///< of the source
    /// Decoded sample n is the source's sample n + offset. An encoder's and a decoder's filterbank
    /// together make it -481 or less.
    std::int64_t offset = 0;
    double correlation = 0; ///< at that offset, -1 .. 1
    std::uint64_t frames = 0, clipped = 0;
    int channels = 0;
    static constexpr int sblimit = 32;
    double snr = 0;                     ///< dB, of all subband samples
    double mean_nmr = 0, worst_nmr = 0; ///< dB: of the mean ratio, and the greatest
    /// dB: of the whole stream's energies, and the mean ratio of noise to mask.
    double subband_level[2][32] = {}, subband_snr[2][32] = {}, subband_nmr[2][32] = {};
};

/// dB of one frame.
struct compared_frame {
    std::uint64_t number = 0;
    float level[2][32] = {}, error[2][32] = {}, snr[2][32] = {}, nmr[2][32] = {};
};

/// Reads the stream once more. The source is aligned by correlation with the decoded sound, put through
/// the encoder's filterbank and psychoacoustic model as the encoder would, and compared subband sample
/// by subband sample. Frames that are damaged are left out.
/// @param each  gets every frame that is compared
/// @throws failure when the source does not fit
comparison_totals compare_with_source(const std::string &stream_path, const stream_report &report,
                                      const std::string &source_path,
                                      const std::function<void(const compared_frame &)> &each);

} // namespace tools
