#include "coding/scalefactors.hpp"

#include "coding/scalefactor_table.hpp"
#include "simd/table.hpp"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace vela {

namespace {

// Magnitudes by exponent and the top three bits of the mantissa: narrow enough bins that at most one
// scale factor lies in each.
constexpr int bin_shift = 52 - 3;
constexpr int bin_of(double magnitude) noexcept {
    return static_cast<int>(std::bit_cast<std::uint64_t>(magnitude) >> bin_shift);
}
constexpr int first_bin = bin_of(0x1p-20), last_bin = bin_of(2.0);

/// The index for the lower end of each bin; below the first one it is 62 throughout.
constexpr auto index_of_bin = [] {
    table<std::uint8_t, last_bin - first_bin + 1> made{};
    for (int bin = first_bin; bin <= last_bin; ++bin) {
        const double low = std::bit_cast<double>(static_cast<std::uint64_t>(bin) << bin_shift);
        int i = 62;
        while (i > 0 && scalefactor_table[i] < low)
            --i;
        made[bin - first_bin] = static_cast<std::uint8_t>(i);
    }
    return made;
}();

/// Classes of a difference of two consecutive indexes, -62..62, at [difference + 62].
constexpr table<std::uint8_t, 125> difference_class = [] {
    table<std::uint8_t, 125> made{};
    for (int d = -62; d <= 62; ++d) {
        const int c = d <= -3 ? 0 : d < 0 ? 1 : d == 0 ? 2 : d < 3 ? 3 : 4;
        made[d + 62] = static_cast<std::uint8_t>(c);
    }
    return made;
}();

/// How a subband's three indexes are sent: scfsi, and which of them each part uses; `smaller` is the
/// smaller one of the first and the third.
struct pattern {
    std::uint8_t scfsi, use[3];
};
constexpr std::uint8_t smaller = 3;
constexpr pattern p123{0, {0, 1, 2}}, p122{3, {0, 1, 1}}, p133{3, {0, 2, 2}}, p113{1, {0, 0, 2}},
    p111{2, {0, 0, 0}}, p222{2, {1, 1, 1}}, p333{2, {2, 2, 2}}, p444{2, {smaller, smaller, smaller}};

/// Pattern by the classes of (first - second) and (second - third), ISO/IEC 11172-3 Table C.4.
constexpr pattern pattern_table[5][5] = {
    {p123, p122, p122, p133, p123}, {p113, p111, p111, p444, p113}, {p111, p111, p111, p333, p113},
    {p222, p222, p222, p333, p123}, {p123, p122, p122, p133, p123},
};

} // namespace

int scalefactor_index(double magnitude) noexcept {
    const int bin = std::clamp(bin_of(magnitude), first_bin, last_bin);
    const int index = index_of_bin[bin - first_bin];
    const int too_small = scalefactor_table[index] < magnitude;
    return index - (too_small & static_cast<int>(index > 0));
}

void compute_scalefactors(const coding_kernels &kernels, const part_samples &samples,
                          std::uint8_t (&index)[32]) noexcept {
    double peak[32];
    kernels.peaks(samples, peak);
    for (int sb = 0; sb < 32; ++sb)
        index[sb] = static_cast<std::uint8_t>(scalefactor_index(peak[sb]));
}

int choose_scfsi(std::uint8_t &first, std::uint8_t &second, std::uint8_t &third) noexcept {
    const pattern &chosen =
        pattern_table[difference_class[first - second + 62]][difference_class[second - third + 62]];
    const std::uint8_t sources[4] = {first, second, third, std::min(first, third)};
    first = sources[chosen.use[0]];
    second = sources[chosen.use[1]];
    third = sources[chosen.use[2]];
    return chosen.scfsi;
}

void choose_scfsi(const coder_config &config, side_info &side) noexcept {
    for (int ch = 0; ch < config.channels; ++ch) {
        auto &index = side.scalefactor[ch];
        for (int sb = 0; sb < config.sblimit; ++sb) {
            side.scfsi[ch][sb] =
                static_cast<std::uint8_t>(choose_scfsi(index[0][sb], index[1][sb], index[2][sb]));
        }
    }
}

} // namespace vela
