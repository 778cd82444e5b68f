// Whole streams: every frame legal, equal to the literal encoder, the same however the input is cut.
#include "host/encoding.hpp"
#include "host/signals.hpp"
#include "oracle/analysis.hpp"
#include "oracle/coding.hpp"
#include "oracle/frame_parser.hpp"
#include "oracle/psy_model.hpp"
#include "oracle/standard_tables.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <random>

namespace {

using namespace mp1a_test;

std::vector<float> make_input(const stream &how, waveform kind, int frames) {
    const int length = frames * how.frame_samples();
    const auto left = make_signal(kind, length, 1);
    return how.channels() == 1 ? left : interleave(left, make_signal(kind, length, 2));
}

/// The frames, each of them parsed.
std::vector<std::unique_ptr<oracle::parsed_frame>>
expect_legal(const stream &how, const std::vector<delivered_frame> &frames) {
    std::vector<std::unique_ptr<oracle::parsed_frame>> parsed;
    for (const delivered_frame &frame : frames) {
        parsed.push_back(std::make_unique<oracle::parsed_frame>(oracle::parse_frame(frame.bytes)));
        const oracle::parsed_frame &p = *parsed.back();
        const frame_header &h = frame.header.header;
        EXPECT_EQ(p.error, "") << "frame " << parsed.size() << ", layer " << how.layer << ", mode "
                               << how.mode << ", index " << how.bitrate << ", rate " << how.rate;
        EXPECT_EQ(p.layer, how.layer);
        EXPECT_EQ(p.crc, how.crc);
        EXPECT_EQ(p.rate, how.rate);
        EXPECT_EQ(p.kbps, oracle::bitrate_of(how.layer, how.bitrate));
        EXPECT_TRUE(p.mode == how.mode || (how.mode == 1 && p.mode == 0)) << p.mode;
        EXPECT_EQ(frame.info.length, frame.bytes.size());
        const auto number = static_cast<std::int64_t>(parsed.size());
        EXPECT_EQ(frame.info.time_stamp, number * 27000000 * how.frame_samples() / how.rate);
        // The header is reported as it stands in the stream.
        EXPECT_TRUE(h.id == 1 && h.layer == p.layer && h.padding == p.padding && h.mode == p.mode
                    && h.mode_extension == p.mode_extension && h.error_protection == p.crc);
        for (const std::uint8_t byte : frame.header.undefined)
            EXPECT_EQ(byte, 0);
    }
    return parsed;
}

TEST(stream, every_frame_of_every_setting_is_legal_and_of_exact_length) {
    for (int i = 0; i < 2 * 4 * 14 * 3 * 2; ++i) {
        stream how{.layer = 1 + i % 2,
                   .mode = i / 2 % 4,
                   .bitrate = 1 + i / 8 % 14,
                   .crc = i / 112 % 2,
                   .rate = i / 224 == 0   ? 32000
                           : i / 224 == 1 ? 44100
                                          : 48000};
        if (make_encoder(how) == nullptr) {
            EXPECT_TRUE(how.bitrate < (how.channels() == 2 ? 4 : how.layer == 1 ? 3 : 1));
            continue;
        }
        const auto pcm = pcm_bytes(make_input(how, waveform::noise, 3), 2);
        EXPECT_EQ(expect_legal(how, encode(how, pcm)).size(), 3u);
    }
}

TEST(stream, is_legal_and_the_same_at_every_level_also_beyond_full_scale_and_without_numbers) {
    for (const waveform kind : {waveform::onset, waveform::square, waveform::broken}) {
        for (int i = 0; i < 16; ++i) {
            const stream how{
                .layer = 1 + i % 2, .mode = i / 2 % 4, .bitrate = i < 8 ? 6 : 14, .crc = 1, .width = 4};
            auto input = make_input(how, kind, 8);
            for (std::size_t k = input.size() / 2; k < input.size(); ++k)
                input[k] *= kind == waveform::broken ? 40 : 1; // steadily too loud
            const auto pcm = pcm_bytes(input, 4);
            const auto expected = encode(how, pcm, vela::level::reference);
            EXPECT_EQ(expect_legal(how, expected).size(), 8u);
            for (const vela::level which : levels()) {
                const auto got = encode(how, pcm, which);
                for (std::size_t f = 0; f < expected.size(); ++f)
                    ASSERT_EQ(got.at(f).bytes, expected[f].bytes)
                        << "level " << static_cast<int>(which);
            }
        }
    }
}

/// What an encoder that follows the standard's wording would put into a frame.
class literal_encoder {
  public:
    /// @param pcm  16-bit samples
    literal_encoder(const stream &how, const std::vector<std::uint8_t> &pcm)
        : how_(how), psy_(how.layer, how.rate), parts_(how.layer == 1 ? 1 : 3) {
        for (auto &channel : channel_)
            channel.assign(lead, 0.0F);
        for (std::size_t i = 0; i < pcm.size() / 2; ++i) {
            const auto value = static_cast<std::int16_t>(pcm[2 * i] | pcm[2 * i + 1] << 8);
            channel_[i % static_cast<std::size_t>(how.channels())].push_back(value);
        }
        for (auto &channel : channel_)
            channel.insert(channel.end(), 1152, 0.0F);
    }

    void expect_frame(int number, const oracle::parsed_frame &got) {
        analyze(number);
        oracle::allocation_problem p = problem(got);
        const auto expected = oracle::allocate(p);
        EXPECT_EQ(got.mode, how_.mode == 1 ? expected.mode : how_.mode) << "frame " << number;
        EXPECT_EQ(got.mode_extension, expected.extension);
        EXPECT_EQ(got.stuffing, expected.left);
        for (int ch = 0; ch < how_.channels(); ++ch) {
            for (int sb = 0; sb < got.sblimit; ++sb) {
                ASSERT_EQ(got.allocation[ch][sb], expected.allocation[ch][sb])
                    << "frame " << number << ", channel " << ch << ", subband " << sb;
                if (got.allocation[ch][sb] == 0) continue;
                ASSERT_EQ(got.scfsi[ch][sb], how_.layer == 2 ? p.scfsi[ch][sb] : 2);
                for (int part = 0; part < parts_; ++part)
                    expect_part(got, ch, sb, part);
            }
        }
    }

  private:
    static constexpr std::size_t lead = 640 + 64;

    void analyze(int number) {
        const int start = number * how_.frame_samples() - (how_.layer == 1 ? 64 : 0);
        for (int c = 0; c < how_.channels(); ++c) {
            const float *const frame_start = channel_[c].data() + lead + start;
            psy_.analyze(frame_start, c, smr_[c]);
            for (int step = 0; step < 12 * parts_; ++step)
                samples_[c][step] = oracle::analyze(frame_start + 32 * step + 31);
        }
        for (int step = 0; step < 12 * parts_; ++step) {
            for (unsigned sb = 0; sb < 32; ++sb)
                samples_[2][step][sb] = (samples_[0][step][sb] + samples_[1][step][sb]) / 2;
        }
        for (int i = 0; i < 3 * parts_ * 32; ++i) {
            const int sb = i % 32, part = i / 32 % parts_, c = i / 32 / parts_;
            double peak = 0;
            for (int j = 0; j < 12; ++j)
                peak = std::max(peak, std::fabs(samples_[c][12 * part + j][static_cast<unsigned>(sb)]));
            index_[c][sb][part] = oracle::scalefactor_index(peak);
        }
    }

    oracle::allocation_problem problem(const oracle::parsed_frame &got) {
        oracle::allocation_problem p{};
        p.layer = how_.layer;
        p.channels = how_.channels();
        p.crc = how_.crc == 1;
        p.joint = how_.mode == 1;
        p.table = oracle::table_of(how_.rate, got.kbps / p.channels);
        const int slots = got.kbps * (how_.layer == 1 ? 12000 : 144000) / how_.rate + got.padding;
        p.budget = slots * (how_.layer == 1 ? 32 : 8);
        for (int i = 0; i < 32 * p.channels; ++i) {
            p.smr[i / 32][i % 32] = smr_[i / 32][i % 32];
            if (how_.layer == 2)
                p.scfsi[i / 32][i % 32] = oracle::select_scalefactors(index_[i / 32][i % 32]);
        }
        return p;
    }

    /// Scale factors as chosen, samples as quantized. Where a sample lies on the boundary between two
    /// codes, the rounding of the arithmetic decides.
    void expect_part(const oracle::parsed_frame &got, int ch, int sb, int part) {
        ASSERT_EQ(got.scalefactor[ch][part][sb], index_[ch][sb][part])
            << "channel " << ch << ", subband " << sb;
        const int source = sb < got.bound ? ch : 2, steps = got.steps[ch][sb];
        const double scale = oracle::scalefactor(index_[source][sb][part]);
        for (int j = 0; j < 12; ++j) {
            const double x = samples_[source][12 * part + j][static_cast<unsigned>(sb)] / scale;
            const double middle = (2.0 * oracle::quantize(how_.layer, x, steps) + 1 - steps) / steps;
            const double code = (x + 1) * steps / 2;
            const double tolerance = std::fabs(code - std::round(code)) < 1e-4 ? 2.0 / steps : 0;
            ASSERT_NEAR(got.fraction[ch][part][j][sb], middle, tolerance + 1e-12)
                << "channel " << ch << ", subband " << sb << ", part " << part << ", sample " << j;
        }
    }

    stream how_;
    oracle::psy_model psy_;
    int parts_;
    std::vector<float> channel_[2];
    double smr_[2][32] = {};
    oracle::subbands samples_[3][36] = {}; ///< left, right, sum
    int index_[3][32][3] = {};
};

class literal : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(literal, frames_carry_what_the_standards_wording_gives) {
    constexpr std::pair<int, int> qualities[] = {{5, 48000}, {8, 44100}, {11, 32000}, {14, 44100}};
    const auto [layer, mode] = GetParam();
    for (const auto &[bitrate, rate] : qualities) {
        for (const waveform kind :
             {waveform::noise, waveform::tone, waveform::onset, waveform::square}) {
            const stream how{
                .layer = layer, .mode = mode, .bitrate = bitrate, .crc = bitrate % 2, .rate = rate};
            auto pcm = pcm_bytes(make_input(how, kind, 5), 2);
            pcm.resize(pcm.size() - 100); // silence completes the last frame
            const auto frames = encode(how, pcm);
            ASSERT_EQ(frames.size(), 5u);
            const auto parsed = expect_legal(how, frames);
            literal_encoder expected(how, pcm);
            for (int f = 0; f < 5; ++f) {
                expected.expect_frame(f, *parsed[static_cast<unsigned>(f)]);
                if (HasFatalFailure()) {
                    FAIL() << "signal " << static_cast<int>(kind) << ", index " << bitrate << ", frame "
                           << f;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(layers_and_modes, literal,
                         testing::Combine(testing::Values(1, 2), testing::Values(0, 1, 2, 3)));

TEST(stream, any_split_of_the_input_gives_the_same_bytes) {
    std::mt19937 random(4);
    for (int i = 0; i < 2 * 2 * 3; ++i) {
        const stream how{.layer = 1 + i % 2, .mode = i / 2 % 2 * 3, .bitrate = 8, .width = 2 + i / 4};
        auto pcm = pcm_bytes(make_input(how, waveform::noise, 7), how.width);
        pcm.resize(pcm.size() - 100 * static_cast<unsigned>(how.width)); // the last frame is padded
        const auto expected = encode(how, pcm);
        ASSERT_EQ(expected.size(), 7u);
        for (const unsigned longest : {1u, 3u, 700u, 6000u}) {
            const auto encoder = make_encoder(how);
            fake_output output;
            ASSERT_EQ(mpegOutAudioInit(encoder.get(), &output), 0);
            for (std::size_t at = 0; at < pcm.size();) {
                // Whole samples, so a call may end between the channels; then bytes of a cut sample
                // that must not count.
                const auto width = static_cast<std::size_t>(how.width);
                const std::size_t bytes = std::min((1 + random() % longest) * width, pcm.size() - at);
                std::vector<std::uint8_t> block(pcm.begin() + static_cast<std::ptrdiff_t>(at),
                                                pcm.begin() + static_cast<std::ptrdiff_t>(at + bytes));
                block.resize(bytes + random() % width, 0x77);
                ASSERT_EQ(mpegOutAudioPutBytes(encoder.get(), block.data(),
                                               static_cast<std::uint32_t>(block.size())),
                          0);
                at += bytes;
            }
            mpegOutAudioDone(encoder.get(), 0);
            ASSERT_EQ(output.frames.size(), expected.size());
            for (std::size_t f = 0; f < expected.size(); ++f)
                ASSERT_EQ(output.frames[f].bytes, expected[f].bytes)
                    << "longest " << longest << ", frame " << f;
        }
    }
}

TEST(stream, goes_on_from_any_frame_as_if_it_had_encoded_the_ones_before) {
    for (int i = 0; i < 8; ++i) {
        const stream how{
            .layer = 1 + i % 2, .mode = 1 + i / 4 * 2, .bitrate = 9, .rate = i / 2 % 2 ? 48000 : 44100};
        const auto pcm =
            pcm_bytes(make_input(how, i / 2 % 2 ? waveform::onset : waveform::tone, 15), 2);
        const auto expected = encode(how, pcm);
        const std::size_t frame_bytes = pcm.size() / 15;
        for (const std::size_t first : {0u, 1u, 5u, 6u, 7u, 13u}) {
            const auto encoder = make_encoder(how);
            fake_output output;
            ASSERT_EQ(mpegOutAudioInit(encoder.get(), &output), 0);
            // What it has encoded before, and half a frame more, must leave nothing behind.
            const std::size_t before = std::min<std::size_t>(first, 1) * frame_bytes * 3 / 2 / 4 * 4;
            encoder->put_bytes(pcm.data(), static_cast<std::uint32_t>(before));
            output.frames.clear();
            const std::size_t history = std::min<std::size_t>(first, mpeg_a_encoder::history_frames);
            encoder->position(
                static_cast<std::int64_t>(first),
                std::span(pcm).subspan((first - history) * frame_bytes, history * frame_bytes));
            encoder->put_bytes(pcm.data() + first * frame_bytes,
                               static_cast<std::uint32_t>(pcm.size() - first * frame_bytes));
            ASSERT_EQ(output.frames.size(), 15 - first);
            for (std::size_t f = first; f < 15; ++f) {
                EXPECT_EQ(output.frames[f - first].bytes, expected[f].bytes)
                    << first << ", frame " << f;
                EXPECT_EQ(output.frames[f - first].info.time_stamp, expected[f].info.time_stamp);
            }
        }
    }
}

TEST(stream, settings_that_must_not_matter_do_not_and_header_bits_arrive) {
    const stream how;
    const auto pcm = pcm_bytes(make_input(how, waveform::noise, 2), 2);
    const auto expected = encode(how, pcm);
    mpeg_a_settings settings = how.settings();
    settings.psych_model = 1;
    settings.extension = settings.copyright = settings.original = 1;
    settings.emphasis = 3;
    const encoder_pointer encoder(mpegOutAudioNew(nullptr, &settings, 0, 2, 48000), mpegOutAudioFree);
    settings = {}; // the encoder keeps its own copy
    fake_output output;
    ASSERT_EQ(mpegOutAudioInit(encoder.get(), &output), 0);
    mpegOutAudioPutBytes(encoder.get(), pcm.data(), static_cast<std::uint32_t>(pcm.size()));
    ASSERT_EQ(output.frames.size(), 2u);
    for (std::size_t f = 0; f < 2; ++f) {
        const auto parsed = oracle::parse_frame(output.frames[f].bytes);
        EXPECT_TRUE(parsed.private_bit == 1 && parsed.copyright == 1 && parsed.original == 1
                    && parsed.emphasis == 3);
        auto bytes = output.frames[f].bytes;
        bytes[2] &= 0xFE;
        bytes[3] &= 0xF0;
        EXPECT_EQ(bytes, expected[f].bytes) << "the model's number changed the audio";
    }
}

} // namespace
