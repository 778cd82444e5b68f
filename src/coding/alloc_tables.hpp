// Quantizers and the tables of those that each subband may choose from.
#pragma once

#include "coding/kernels.hpp"
#include "simd/table.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace vela {

/// One kind of quantizer (ISO/IEC 11172-3 Table 3-B.4; signal-to-noise ratios: Table C.5).
struct quant_class {
    int steps;
    int code_words; ///< per triplet: 1 grouped, 3 separate
    int code_bits;  ///< of one code word
    double snr;     ///< dB
};

inline constexpr table<quant_class, 17> quant_classes{{
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

/// The quantizers that a subband may choose from, coarse to fine, by allocation index: 0 is no bits.
struct alloc_row {
    int alloc_bits;                      ///< width of the subband's allocation field
    int last;                            ///< highest allocation index
    int demand_limit;                    ///< counts as sufficient when no lower index is
    table<double, 16> snr;               ///< dB
    table<double, 16> snr_to_refine;     ///< the same, but infinite where nothing finer exists
    table<std::int16_t, 16> sample_bits; ///< of the subband's samples in a frame
    table<std::int16_t, 16> refine_bits; ///< more of them one index further, if any
    table<std::uint8_t, 16> classes;     ///< among quant_classes; unused at index 0
    table<std::uint8_t, quantizer_count> index_of_class; ///< 0 of those that there are not
    table<quantizer, 16> quantizers;
    table<code_layout, 16> layouts;
    /// First index with an SNR of at least i - 0.5 dB, at most `last`.
    table<std::uint8_t, 100> first_at;

    /// The first index whose mask-to-noise ratio snr - smr reaches `mnr`; `last` when none does.
    /// Both arguments are finite; their sum lies within 10^6 dB.
    int first_reaching(double mnr, double smr) const noexcept {
        // No two quantizers lie within 1 dB, so that at most one has to be compared exactly. Without
        // branches: the search asks for all subbands, and no two answers are alike.
        const int decibels = std::clamp(static_cast<int>(mnr + smr + 0.5), 0, 99);
        const int index = first_at[decibels];
        return index + (snr_to_refine[index] - smr < mnr);
    }
};

namespace detail {

/// Layer I quantizer A x + B (ISO/IEC 11172-3, C.1.5.1.7) of allocation n: A = (2^(n+1) - 1) / 2^(n+1)
/// and B = A - 1, to the nine decimals of the standard's table.
constexpr quantizer layer1_quantizer(int n) {
    const std::int64_t unit = 1'000'000'000, steps = std::int64_t{1} << (n + 1);
    const std::int64_t step_size = (unit + steps / 2) / steps;       // 1 / 2^(n+1), rounded
    const std::int64_t a = ((steps - 1) * unit + steps / 2) / steps; // 1 - 1 / 2^(n+1), rounded
    return {static_cast<double>(a) / 1e9, -static_cast<double>(step_size) / 1e9,
            static_cast<double>(1 << n), static_cast<double>(steps - 2)};
}

/// A triplet's code words one behind the other, or the one that they share.
constexpr code_layout layer2_layout(const quant_class &q) {
    const auto bits = static_cast<std::uint32_t>(q.code_bits);
    const auto steps = static_cast<std::uint64_t>(q.steps);
    if (q.code_words == 1) return {{1, steps, steps * steps}, bits};
    return {{std::uint64_t{1} << 2 * bits, std::uint64_t{1} << bits, 1}, 3 * bits};
}

/// A row whose index n >= 1 selects classes[n - 1].
/// @param samples  of a subband in a frame, 12 or 36
template <int N>
constexpr alloc_row make_row(int alloc_bits, int samples, const int (&classes)[N]) {
    alloc_row row{};
    row.alloc_bits = alloc_bits;
    row.last = N;
    // Layer II never counts its finest quantizer as needed.
    row.demand_limit = samples == 12 ? row.last : row.last - 1;
    for (int n = 1; n <= N; ++n) {
        const quant_class &q = quant_classes[classes[n - 1]];
        row.snr[n] = q.snr;
        row.classes[n] = static_cast<std::uint8_t>(classes[n - 1]);
        row.index_of_class[classes[n - 1]] = static_cast<std::uint8_t>(n);
        // Layer I never groups: a code word of its own for each of its samples.
        if (samples == 12) {
            row.sample_bits[n] = static_cast<std::int16_t>(12 * (n + 1));
            row.layouts[n] = {{1, 0, 0}, static_cast<std::uint32_t>(n + 1)};
            row.quantizers[n] = layer1_quantizer(n);
        } else {
            row.sample_bits[n] = static_cast<std::int16_t>(12 * q.code_words * q.code_bits);
            row.layouts[n] = layer2_layout(q);
            row.quantizers[n] = {0.0, 0.0, q.steps / 2.0, q.steps - 1.0};
        }
    }
    for (int n = 0; n < N; ++n) {
        row.snr_to_refine[n] = row.snr[n];
        row.refine_bits[n] = static_cast<std::int16_t>(row.sample_bits[n + 1] - row.sample_bits[n]);
    }
    row.snr_to_refine[N] = std::numeric_limits<double>::infinity();
    for (int i = 0; i < 100; ++i) {
        int n = 0;
        while (n < N && row.snr[n] < i - 0.5)
            ++n;
        row.first_at[i] = static_cast<std::uint8_t>(n);
    }
    return row;
}

} // namespace detail

namespace alloc_rows {
/// Layer I: allocation n means 2^(n+1) - 1 steps in n + 1 bits.
inline constexpr alloc_row layer1 =
    detail::make_row(4, 12, {0, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
// Layer II by the tables' blocks of subbands. Classes by steps: 0 is 3, 1 is 5, 2 is 7, 3 is 9, then
// 2^n - 1.
inline constexpr alloc_row a_low =
    detail::make_row(4, 36, {0, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
inline constexpr alloc_row a_mid =
    detail::make_row(4, 36, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16});
inline constexpr alloc_row a_high = detail::make_row(3, 36, {0, 1, 2, 3, 4, 5, 16});
inline constexpr alloc_row a_top = detail::make_row(2, 36, {0, 1, 16});
inline constexpr alloc_row c_low =
    detail::make_row(4, 36, {0, 1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
inline constexpr alloc_row c_high = detail::make_row(3, 36, {0, 1, 3, 4, 5, 6, 7});
} // namespace alloc_rows

/// Rows of the subbands below sblimit.
struct alloc_table {
    int sblimit;
    table<const alloc_row *, 32> rows;
    quantizer_set set; ///< the same by class

    constexpr const alloc_row &row(int sb) const noexcept { return *rows[sb]; }
};

namespace detail {
struct row_run {
    int end; ///< one past the run's last subband
    const alloc_row *row;
};
consteval quantizer_set::group quantizers_of_any(const quantizer_set &set, int first, int subbands) {
    quantizer_set::group found{};
    for (int q = 0; q < quantizer_count; ++q) {
        found.before[q + 1] = found.before[q];
        const double *const barred = set.barred[q].begin() + first;
        if (std::find(barred, barred + subbands, 0.0) == barred + subbands) continue;
        found.quantizers[found.count++] = static_cast<std::uint8_t>(q);
        ++found.before[q + 1];
    }
    return found;
}
template <int N>
consteval alloc_table make_alloc_table(const row_run (&runs)[N]) {
    alloc_table made{runs[N - 1].end, {}, {}};
    quantizer_set &set = made.set;
    for (auto &of_class : set.barred)
        std::fill(of_class.begin(), of_class.end(), 1e200);
    int sb = 0;
    for (const row_run &run : runs) {
        for (; sb < run.end; ++sb) {
            made.rows[sb] = run.row;
            for (int n = 1; n <= run.row->last; ++n) {
                set.barred[run.row->classes[n]][sb] = 0;
                set.sample_bits[run.row->classes[n]] = run.row->sample_bits[n];
            }
        }
    }
    for (int i = 0; i < 8; ++i) {
        set.groups[i] = quantizers_of_any(set, 4 * i, 4);
        set.pairs[i] = quantizers_of_any(set, 4 * i, std::min(8, 32 - 4 * i));
    }
    return made;
}
} // namespace detail

/// Layer I: every subband alike.
inline constexpr alloc_table table_layer1 = detail::make_alloc_table({{32, &alloc_rows::layer1}});

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

/// The table of a Layer II stream.
/// @param channel_kbps  bitrate per channel in kbit/s
inline constexpr const alloc_table &select_alloc_table(int sample_rate, int channel_kbps) noexcept {
    if (channel_kbps < 56) return sample_rate == 32000 ? table_b2d : table_b2c;
    return sample_rate == 48000 || channel_kbps <= 80 ? table_b2a : table_b2b;
}

// ---- joint stereo ----

/// First subband that both channels share, by mode_extension (ISO/IEC 11172-3, 2.4.2.3).
inline constexpr table<int, 4> joint_bounds{4, 8, 12, 16};

// ---- scale factor selection ----

/// Scale factors sent per scfsi.
inline constexpr table<int, 4> scalefactors_per_scfsi{3, 2, 1, 2};

} // namespace vela
