// Loudness by EBU R 128: what a meter writes down, and the figures that follow from it.
#pragma once

#include <optional>
#include <vector>

namespace tools {

/// What EBU R 128 says of a programme.
struct loudness_figures {
    std::optional<double> integrated; ///< LUFS; none where no block is louder than -70 LUFS
    double range = 0;                 ///< LU
    /// The greatest ones in LUFS, of 400 ms and of 3 s; none for a programme that is shorter, or silent.
    std::optional<double> momentary, short_term;
    std::optional<double> true_peak; ///< dBTP; none for digital silence
};

/// A programme, heard in steps of 10 ms: short enough for the loudest 400 ms wherever they begin. The
/// records of its parts, one behind the other, make that of the whole.
struct loudness_record {
    static constexpr int steps_a_second = 100;

    std::vector<float> energy; ///< of each whole step: mean squares of the weighted channels, added up
    double peak = 0;           ///< the greatest magnitude between the samples, too; 1: full scale

    void append(const loudness_record &next);

    /// Integrated loudness by ITU-R BS.1770-4, annex 1; range by EBU Tech 3342.
    loudness_figures figures() const;
};

} // namespace tools
