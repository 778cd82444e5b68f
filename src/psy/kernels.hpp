// The psychoacoustic model's kernels, compiled once per level.
#pragma once

#include "psy/partitions.hpp"
#include "simd/level.hpp"

namespace vela {

inline constexpr int transform_length = 1024;
/// Lines padded to whole groups of lanes; the padding stays zero.
inline constexpr int padded_lines = 520;

/// Values per line of a spectrum.
using lines = double[padded_lines];

/// The transform as pairs: a[k] = H[k] and b[k] = H[1024 - k], H the discrete Hartley transform; for
/// the unpaired lines 0 and 512, a = 0 and b = H[k]. The DFT is X[k] = ((a + b) + i (b - a)) / 2.
struct line_pairs {
    lines a, b;
};

/// What is kept of one pass for the prediction of later ones: the pairs and the magnitudes.
struct pass_history {
    line_pairs pair;
    lines r;
};

/// Energy, and unpredictability (0 tonal .. 1 noise-like) per line.
struct spectrum {
    lines energy, unpredictability;
};

/// Signal-to-mask ratio in dB per subband.
using smr_row = double[32];

struct psy_kernels {
    /// Windows and transforms `count` (1..4) blocks of 1024 samples.
    void (*transform)(const float *const *blocks, int count, line_pairs *out) noexcept;

    /// Energies and unpredictabilities of a pass. `oldest` holds the pass before `previous`; the pass
    /// itself takes its place.
    void (*analyze_lines)(const line_pairs &pass, const pass_history &previous, pass_history &oldest,
                          spectrum &out) noexcept;

    /// Masking threshold per line of each partition.
    void (*mask)(const partition_tables &tables, const spectrum &pass,
                 double (&mask)[padded_partitions]) noexcept;

    /// Ratio of energy to threshold per subband.
    void (*ratios)(const lines &energy, const lines &threshold, smr_row &out) noexcept;
};

const psy_kernels &psy_kernels_of(level which) noexcept;

} // namespace vela
