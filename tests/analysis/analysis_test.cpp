// PCM input and the polyphase filterbank.
#include "analysis/filterbank.hpp"
#include "analysis/pcm_input.hpp"
#include "analysis/window_table.hpp"
#include "host/encoding.hpp"
#include "host/signals.hpp"
#include "oracle/analysis.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>

namespace {

using namespace mp1a_test;
using namespace vela;

constexpr double untouched = 12345.0;

struct analysed_frame {
    subband_samples samples;
    double at(int i) const { return (&samples[0][0][0][0])[i]; }
};

std::unique_ptr<analysed_frame> analyze(level which, const std::vector<float> (&input)[2], int channels,
                                        int parts) {
    auto out = std::make_unique<analysed_frame>();
    std::fill_n(&out->samples[0][0][0][0], 2 * 3 * 12 * 32, untouched);
    const float *const frame_start[2] = {input[0].data() + 640, input[1].data() + 640};
    analyze_frame(analysis_kernels_of(which), frame_start, channels, parts, out->samples);
    return out;
}

std::vector<float> on_16_bit_scale(waveform kind, unsigned seed) {
    auto samples = make_signal(kind, 1792, seed);
    for (float &sample : samples)
        sample *= 32768;
    return samples;
}

TEST(filterbank, equals_direct_windowing_and_matrixing_and_every_level_the_reference) {
    for (const waveform kind : all_waveforms) {
        const std::vector<float> input[2] = {on_16_bit_scale(kind, 1), on_16_bit_scale(kind, 2)};
        for (int setting = 0; setting < 4; ++setting) {
            const int channels = 1 + setting % 2, parts = setting < 2 ? 1 : 3;
            const auto reference = analyze(level::reference, input, channels, parts);
            for (int i = 0; i < 2 * 3 * 12 * 32; ++i) {
                const int c = i / 1152, step = i / 32 % 36;
                const bool written = c < channels && step < 12 * parts;
                ASSERT_EQ(reference->at(i) == untouched, !written) << "value " << i;
                if (!written || kind == waveform::broken) continue;
                const auto expected = oracle::analyze(input[c].data() + 640 + 32 * step + 31);
                ASSERT_NEAR(reference->at(i), expected[static_cast<unsigned>(i % 32)], 1e-12) << i;
                ASSERT_TRUE(kind != waveform::silence || reference->at(i) == 0.0);
            }
            for (const level which : levels()) {
                const auto got = analyze(which, input, channels, parts);
                for (int i = 0; i < 2 * 3 * 12 * 32; ++i) {
                    const double a = reference->at(i), b = got->at(i);
                    ASSERT_TRUE(std::isnan(a) ? std::isnan(b)
                                              : a == b && std::signbit(a) == std::signbit(b))
                        << "level " << static_cast<int>(which) << ", value " << i;
                }
            }
        }
    }
}

TEST(window, has_the_samples_that_are_printed_in_the_standard) {
    // Table C.1, in units of 1e-9. The decoders' tests look at all of it.
    const std::pair<int, std::int64_t> printed[] = {{0, 0}, {1, -477}, {256, 35780907}, {511, 477}};
    for (const auto &[i, value] : printed)
        EXPECT_EQ(printed_window(i), value) << i;
}

TEST(pcm_input, each_width_arrives_on_the_16_bit_scale) {
    const struct {
        int bits;
        std::vector<std::uint8_t> bytes;
        float value;
    } cases[] = {{16, {0x00, 0x80}, -32768.0F},         {16, {0xFF, 0x7F}, 32767.0F},
                 {24, {0x00, 0x00, 0x80}, -32768.0F},   {24, {0xFF, 0xFF, 0x7F}, 32767.99609375F},
                 {24, {0x01, 0x00, 0x00}, 0.00390625F}, {32, {0, 0, 0x80, 0x3F}, 32768.0F},
                 {32, {0, 0, 0, 0xBE}, -4096.0F}};
    for (const auto &c : cases) {
        auto input = std::make_unique<pcm_input>();
        input->init(c.bits, 1, 2);
        std::span<const std::uint8_t> pcm = c.bytes;
        EXPECT_FALSE(input->fill_frame(pcm, false));
        ASSERT_TRUE(input->fill_frame(pcm, true));
        EXPECT_EQ(input->frame_start(0)[0], c.value);
        EXPECT_EQ(input->frame_start(0)[1], 0.0F);
        EXPECT_FALSE(input->fill_frame(pcm, true)) << "the padded frame came twice";
    }
}

} // namespace
