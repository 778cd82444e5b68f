// A stream beside its original: level, error and noise-to-mask ratio of every subband.
#pragma once

#include "common/failure.hpp"
#include "velainfo/container_tracks.hpp"
#include "velainfo/stream_report.hpp"

#include <functional>
#include <optional>
#include <string>

namespace tools {

/// From this frame on the stream lies elsewhere in its source: frames are lost or doubled.
struct source_jump {
    std::uint64_t frame;
    std::int64_t samples; ///< that the source skips; below 0 it is heard again
};

/// All of it 0 at first.
struct comparison_totals {
    std::string name; ///< of the source
    /// Decoded sample n is the source's sample n + offset, where the stream begins. An encoder's and a
    /// decoder's filterbank together make it -481 or less.
    std::int64_t offset;
    double correlation; ///< at that offset, of sound like the source's: 0 .. 1
    double gain_db;     ///< of the stream against the source; 0 where it cannot be told from none
    bool inverted, swapped;
    std::vector<source_jump> jumps;
    std::uint64_t frames, clipped;
    std::uint64_t outside; ///< frames that lie before the source's start or after its end
    std::uint64_t others;  ///< frames of another layer, rate or number of channels
    /// Seconds of the source that were compared, and that there are.
    double source_begin, source_end;
    std::optional<double> source_seconds;
    int channels;
    static constexpr int sblimit = 32;
    double snr;                 ///< dB, of all subband samples
    double mean_nmr, worst_nmr; ///< dB: of the mean ratio, and the greatest
    /// dB: of the whole stream's energies, and the mean ratio of noise to mask.
    double subband_level[2][32], subband_snr[2][32], subband_nmr[2][32];
};

/// dB of one frame.
struct compared_frame {
    std::uint64_t number;
    float level[2][32], error[2][32], snr[2][32], nmr[2][32];
};

/// Reads the stream once more. The source is aligned by correlation with the decoded sound, put through
/// the encoder's filterbank and psychoacoustic model as the encoder would, and compared subband sample
/// by subband sample. A constant gain, inverted polarity and exchanged channels are named and made up for.
/// Frames that are damaged, of another kind or outside of the source are left out.
/// @param each  gets every frame that is compared
/// @throws failure when the source does not fit; not_alike when its sound does not
comparison_totals compare_with_source(const stream_name &stream, const stream_report &report,
                                      const std::string &source_path,
                                      const std::function<void(const compared_frame &)> &each);

/// Two streams that cannot be compared by their sound; the text says why.
struct not_alike : failure {
    using failure::failure;
};

/// The same with another stream, decoded, in place of the source, and without a psychoacoustic model.
/// @throws failure as above
comparison_totals compare_with_stream(const stream_name &stream, const stream_report &report,
                                      const stream_name &other, const stream_report &other_report,
                                      const std::function<void(const compared_frame &)> &each);

} // namespace tools
