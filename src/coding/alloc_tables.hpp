// Quantization classes and the Layer II tables of possible quantizations.
#pragma once

#include <array>
#include <cstdint>

namespace vela {

/// One kind of quantizer (ISO/IEC 11172-3 Table 3-B.4; signal-to-noise ratios: Table C.5).
struct quant_class {
    int steps;
    int code_words; ///< per granule of three samples: 1 grouped, 3 separate
    int code_bits;  ///< of one code word
    double snr;     ///< dB

    /// Bits of a subband's 36 samples in a Layer II frame.
    constexpr int sample_bits() const noexcept { return 12 * code_words * code_bits; }
};

inline constexpr std::array<quant_class, 17> quant_classes{{
    // steps, code words, bits, SNR
    {3, 1, 5, 7.00},
    {5, 1, 7, 11.00},
    {7, 3, 3, 16.00},
    {9, 1, 10, 20.84},
    {15, 3, 4, 25.28},
    {31, 3, 5, 31.59},
    {63, 3, 6, 37.75},
    {127, 3, 7, 43.84},
    {255, 3, 8, 49.89},
    {511, 3, 9, 55.93},
    {1023, 3, 10, 61.96},
    {2047, 3, 11, 67.98},
    {4095, 3, 12, 74.01},
    {8191, 3, 13, 80.03},
    {16383, 3, 14, 86.05},
    {32767, 3, 15, 92.01},
    {65535, 3, 16, 98.01},
}};

/// The quantizations that a subband may choose from: allocation index 0 is none, index b >= 1 selects
/// classes[b - 1].
struct alloc_row {
    int alloc_bits; ///< width of the subband's allocation field
    std::array<std::uint8_t, 15> classes;

    /// The highest allocation index, 2^alloc_bits - 1.
    constexpr int last() const noexcept { return (1 << alloc_bits) - 1; }
    /// The quantizer of allocation index b, 1..last().
    constexpr const quant_class &entry(int b) const noexcept {
        return quant_classes[classes[static_cast<unsigned>(b - 1)]];
    }
    /// SNR in dB reached by allocation index b, 0..last().
    constexpr double snr(int b) const noexcept { return b == 0 ? 0.0 : entry(b).snr; }
    /// Bits of the samples with allocation index b, 0..last().
    constexpr int sample_bits(int b) const noexcept { return b == 0 ? 0 : entry(b).sample_bits(); }
};

namespace alloc_rows {
// Classes by steps: 0 is 3, 1 is 5, 2 is 7, 3 is 9, 4 is 15, then 2^n - 1.
inline constexpr alloc_row a_low{4, {0, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
inline constexpr alloc_row a_mid{4, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16}};
inline constexpr alloc_row a_high{3, {0, 1, 2, 3, 4, 5, 16}};
inline constexpr alloc_row a_top{2, {0, 1, 16}};
inline constexpr alloc_row c_low{4, {0, 1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};
inline constexpr alloc_row c_high{3, {0, 1, 3, 4, 5, 6, 7}};
} // namespace alloc_rows

/// Rows of the subbands below sblimit.
struct alloc_table {
    int sblimit;
    std::array<const alloc_row *, 32> rows;

    constexpr const alloc_row &row(int sb) const noexcept { return *rows[static_cast<unsigned>(sb)]; }
};

namespace detail {
struct row_run {
    int end; ///< one past the run's last subband
    const alloc_row *row;
};
template <std::size_t N>
consteval alloc_table make_alloc_table(const row_run (&runs)[N]) {
    alloc_table table{runs[N - 1].end, {}};
    unsigned sb = 0;
    for (const row_run &run : runs) {
        for (; sb < static_cast<unsigned>(run.end); ++sb)
            table.rows[sb] = run.row;
    }
    return table;
}
} // namespace detail

/// ISO/IEC 11172-3 Tables 3-B.2a to 3-B.2d.
inline constexpr alloc_table table_b2a = detail::make_alloc_table({{3, &alloc_rows::a_low},
                                                                   {11, &alloc_rows::a_mid},
                                                                   {23, &alloc_rows::a_high},
                                                                   {27, &alloc_rows::a_top}});
inline constexpr alloc_table table_b2b = detail::make_alloc_table({{3, &alloc_rows::a_low},
                                                                   {11, &alloc_rows::a_mid},
                                                                   {23, &alloc_rows::a_high},
                                                                   {30, &alloc_rows::a_top}});
inline constexpr alloc_table table_b2c =
    detail::make_alloc_table({{2, &alloc_rows::c_low}, {8, &alloc_rows::c_high}});
inline constexpr alloc_table table_b2d =
    detail::make_alloc_table({{2, &alloc_rows::c_low}, {12, &alloc_rows::c_high}});

/// The table for a stream.
/// @param channel_kbps  bitrate per channel in kbit/s
inline constexpr const alloc_table &select_alloc_table(int sample_rate, int channel_kbps) noexcept {
    if (sample_rate == 48000) {
        if (channel_kbps >= 56) return table_b2a;
        return channel_kbps <= 48 ? table_b2c : table_b2d;
    }
    if (channel_kbps >= 56 && channel_kbps <= 80) return table_b2a;
    if (channel_kbps >= 96) return table_b2b;
    if (sample_rate == 32000) return table_b2d;
    return channel_kbps <= 48 ? table_b2c : table_b2d;
}

// ---- Layer I ----

/// Highest Layer I allocation; allocation n means 2^(n+1) - 1 steps in n + 1 bits.
inline constexpr int layer1_last_allocation = 14;

/// SNR in dB by Layer I allocation: that of the class with as many steps.
inline constexpr std::array<double, 15> layer1_snr{0.00,  7.00,  16.00, 25.28, 31.59,
                                                   37.75, 43.84, 49.89, 55.93, 61.96,
                                                   67.98, 74.01, 80.03, 86.05, 92.01};

/// Layer I quantizer A x + B (ISO/IEC 11172-3, C.1.5.1.7) for allocation n = 1..14, at index n - 1:
/// A = (2^(n+1) - 1) / 2^(n+1) and B = A - 1, to the nine decimals of the standard's table.
struct layer1_quantizer {
    double a, b;
};
inline constexpr std::array<layer1_quantizer, 14> layer1_quantizers = [] {
    std::array<layer1_quantizer, 14> table{};
    for (unsigned n = 1; n <= 14; ++n) {
        const std::int64_t unit = 1'000'000'000, steps = std::int64_t{1} << (n + 1);
        const std::int64_t step_size = (unit + steps / 2) / steps;       // 1 / 2^(n+1), rounded
        const std::int64_t a = ((steps - 1) * unit + steps / 2) / steps; // 1 - 1 / 2^(n+1), rounded
        table[n - 1] = {static_cast<double>(a) / 1e9, -static_cast<double>(step_size) / 1e9};
    }
    return table;
}();

// ---- joint stereo ----

/// First subband that both channels share, by mode_extension (ISO/IEC 11172-3, 2.4.2.3).
inline constexpr std::array<int, 4> joint_bounds{4, 8, 12, 16};

// ---- scale factor selection ----

/// Scale factors sent per scfsi.
inline constexpr std::array<int, 4> scalefactors_per_scfsi{3, 2, 1, 2};

} // namespace vela
