#include "parser/standard_tables.hpp"

#include <bit>
#include <cmath>

namespace tools {
namespace {

constexpr int all_odd[] = {0,   3,    7,    15,   31,   63,    127,   255,
                           511, 1023, 2047, 4095, 8191, 16383, 32767, 65535};
constexpr int ab_3_steps[] = {0, 3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535};
constexpr int ab_11_steps[] = {0, 3, 5, 7, 9, 15, 31, 65535};
constexpr int ab_23_steps[] = {0, 3, 5, 65535};
constexpr int cd_0_steps[] = {0,   3,   5,    9,    15,   31,   63,    127,
                              255, 511, 1023, 2047, 4095, 8191, 16383, 32767};
constexpr int lower_0_steps[] = {0,   3,   5,   7,    9,    15,   31,   63,
                                 127, 255, 511, 1023, 2047, 4095, 8191, 16383};
constexpr int few_steps[] = {0, 3, 5, 9, 15, 31, 63, 127}; // 3-B.2c, d and B.1

constexpr quantizers layer1{4, std::span(all_odd).first(15)};
constexpr quantizers ab_0{4, all_odd}, ab_3{4, ab_3_steps}, ab_11{3, ab_11_steps},
    ab_23{2, ab_23_steps};
constexpr quantizers cd_0{4, cd_0_steps}, few{3, few_steps};
constexpr quantizers lower_0{4, lower_0_steps}, lower_11{2, std::span(few_steps).first(4)};

} // namespace

const quantizers &quantizers_of(int layer, char table, int subband) {
    if (layer == 1) return layer1;
    if (table == 'e') return subband < 4 ? lower_0 : subband < 11 ? few : lower_11;
    if (table >= 'c') return subband < 2 ? cd_0 : few;
    return subband < 3 ? ab_0 : subband < 11 ? ab_3 : subband < 23 ? ab_11 : ab_23;
}

int sblimit_of(int layer, char table) {
    if (layer == 1) return 32;
    static constexpr int limits[] = {27, 30, 8, 12, 30};
    return limits[table - 'a'];
}

char table_of(int rate, int kbps_per_channel) {
    if (rate < 32000) return 'e';
    if (kbps_per_channel <= 48) return rate == 32000 ? 'd' : 'c';
    return rate == 48000 || kbps_per_channel <= 80 ? 'a' : 'b';
}

bool is_grouped(int layer, int steps) {
    return layer == 2 && (steps == 3 || steps == 5 || steps == 9);
}

int code_bits_of(int layer, int steps) {
    if (is_grouped(layer, steps)) return steps == 3 ? 5 : steps == 5 ? 7 : 10;
    return static_cast<int>(std::bit_width(static_cast<unsigned>(steps)));
}

double scalefactor(int i) {
    // Fourteen decimals.
    return static_cast<double>(std::floor(std::pow(2.0L, 1 - i / 3.0L) * 1e14L + 0.5L)) / 1e14;
}

int bitrate_of(int layer, int index, int version) {
    static constexpr int layer2[] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
    static constexpr int lower1[] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256};
    static constexpr int lower2[] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    if (version == 2) return layer == 1 ? lower1[index] : lower2[index];
    return layer == 1 ? 32 * index : layer2[index];
}

} // namespace tools
