// Whole streams: every frame legal, equal to the literal encoder, the same however the input is cut.
#include "host/encoding.hpp"
#include "oracle/tuned.hpp"
#include "parser/frame_parser.hpp"
#include "parser/standard_tables.hpp"
#include "stream/frame_header.hpp"

#include <gtest/gtest.h>

namespace {

using namespace mp1a_test;

/// A frame with its sample codes.
struct whole_frame : tools::parsed_frame {
    tools::sample_codes codes;
};
using parsed_frames = std::vector<whole_frame>;

constexpr int rates[] = {32000, 44100, 48000};

/// Layer, mode, index, CRC, rate, width.
std::string name_of(const stream &s) {
    return testing::PrintToString(std::tuple{s.layer, s.mode, s.bitrate, s.crc, s.rate, s.width});
}

parsed_frames expect_legal(const stream &how, const std::vector<delivered_frame> &frames) {
    SCOPED_TRACE(name_of(how));
    parsed_frames parsed;
    for (const delivered_frame &frame : frames) {
        auto &p = parsed.emplace_back();
        static_cast<tools::parsed_frame &>(p) = tools::parse_frame(frame.bytes, &p.codes);
        EXPECT_EQ(p.broken_rule(), "") << "frame " << parsed.size();
        EXPECT_TRUE(p.layer == how.layer && p.crc == how.crc && p.rate == how.rate
                    && p.kbps == tools::bitrate_of(how.layer, how.bitrate)
                    && (p.mode == how.mode || (how.mode == 1 && p.mode == 0)));
        EXPECT_EQ(p.private_bit + 2 * p.copyright + 4 * p.original + 8 * p.emphasis, how.flags);
        const auto number = static_cast<std::int64_t>(parsed.size());
        EXPECT_EQ(frame.info.time_stamp, number * 27000000 * how.frame_samples() / how.rate);
        EXPECT_EQ(frame.info.length, frame.bytes.size());
        std::uint32_t word = 0;
        for (int i = 0; i < 4; ++i)
            word = word << 8 | frame.bytes[i];
        EXPECT_EQ(vela::header_word(frame.header.header), word) << "reported otherwise";
        EXPECT_EQ(std::ranges::count(frame.header.undefined, 0), 32);
    }
    return parsed;
}

TEST(stream, every_frame_of_every_setting_at_every_level_is_legal_and_of_exact_length) {
    for (int k = 0; k < 2 * 2 * 4 * 14 * 3 * 2; ++k) {
        const int i = k / 2;
        stream how{1 + i % 2, i / 2 % 4, 1 + i / 8 % 14, i / 112 % 2, rates[i / 224]};
        how.model = k % 2 * MPEG_A_MODEL_TUNED;
        how.flags = i % 24 < 16 ? i % 24 : i % 24 + 8;
        const bool allowed = how.bitrate >= (how.channels() == 2 ? 4 : how.layer == 1 ? 3 : 1);
        const waveform kind = all_waveforms[i % 7];
        how.width = kind == waveform::broken ? 4 : 2 + i % 3;
        const auto frames = encode(how, how.pcm(3 * how.frame_samples(), kind),
                                   levels()[static_cast<std::size_t>(i) % levels().size()]);
        EXPECT_EQ(expect_legal(how, frames).size(), allowed ? 3u : 0u) << name_of(how);
    }
}

/// What an encoder that follows the wording, the standard's or docs/sound.md, would put into a frame.
class literal_encoder {
  public:
    literal_encoder(const stream &how, const std::vector<std::uint8_t> &pcm)
        : how_(how), psy_(how.layer, how.rate), tuned_(2, oracle::tuned_model(how.layer, how.rate)),
          parts_(how.layer == 1 ? 1 : 3) {
        for (auto &channel : channel_)
            channel.assign(lead, 0.0F);
        const auto width = static_cast<std::size_t>(how.width);
        for (std::size_t i = 0; i < pcm.size() / width; ++i) {
            std::int32_t bits = 0; // the sample in the upper bytes
            std::memcpy(reinterpret_cast<char *>(&bits) + 4 - width, &pcm[i * width], width);
            float value = static_cast<float>(bits) / 65536;
            if (width == 4) value = 32768 * std::bit_cast<float>(bits);
            channel_[i % static_cast<std::size_t>(how.channels())].push_back(value);
        }
        for (auto &channel : channel_)
            channel.resize(channel.size() + 1152);
    }

    void expect_frame(int number, const whole_frame &got) {
        analyze(number);
        set_problem(got);
        const oracle::tuned_answer expected = answer();
        EXPECT_EQ(got.mode, how_.mode == 1 ? expected.mode : how_.mode);
        EXPECT_EQ(got.mode_extension, expected.extension);
        EXPECT_EQ(got.bits.rest, expected.left);
        for (int i = 0; i < how_.channels() * got.sblimit; ++i) {
            const int ch = i / got.sblimit, sb = i % got.sblimit;
            SCOPED_TRACE("channel " + std::to_string(ch) + ", subband " + std::to_string(sb));
            ASSERT_EQ(got.allocation[ch][sb], expected.allocation[ch][sb]);
            if (got.allocation[ch][sb] == 0) continue;
            ASSERT_EQ(got.scfsi[ch][sb], how_.layer == 2 ? expected.scfsi[ch][sb] : 2);
            for (int part = 0; part < parts_; ++part) {
                ASSERT_EQ(got.scalefactor[ch][part][sb], expected.index[ch][sb][part]);
                const int source = sb < got.bound ? ch : 2;
                const auto &scale = sb < got.bound ? expected.index[ch] : p_.index[2];
                expect_part(got, ch, sb, part, source, scale[sb][part]);
            }
        }
    }

  private:
    static constexpr std::size_t lead = 640 + 64;

    void analyze(int number) {
        const int start = number * how_.frame_samples() - (how_.layer == 1 ? 64 : 0);
        auto &samples = p_.samples;
        for (int c = 0; c < how_.channels(); ++c) {
            const float *const frame_start = channel_[c].data() + lead + start;
            if (how_.model == MPEG_A_MODEL_TUNED) {
                tuned_[c].analyze(frame_start, p_.weights[c]);
            } else {
                psy_.analyze(frame_start, c, p_.smr[c]);
            }
            for (int step = 0; step < 12 * parts_; ++step)
                oracle::analyze(frame_start + 32 * step + 31, samples[c][step]);
        }
        for (int i = 0; i < 36 * 32; ++i) {
            const int step = i / 32, sb = i % 32;
            samples[2][step][sb] = (samples[0][step][sb] + samples[1][step][sb]) / 2;
        }
        for (int i = 0; i < 3 * parts_ * 32; ++i) {
            const int sb = i % 32, part = i / 32 % parts_, c = i / 32 / parts_;
            double peak = 0;
            for (int j = 0; j < 12; ++j)
                peak = std::max(peak, std::fabs(samples[c][12 * part + j][sb]));
            p_.index[c][sb][part] = oracle::scalefactor_index(peak);
        }
    }

    void set_problem(const whole_frame &got) {
        const int slots = got.kbps * (how_.layer == 1 ? 12000 : 144000) / how_.rate + got.padding;
        p_.layer = how_.layer;
        p_.channels = how_.channels();
        p_.crc = how_.crc == 1;
        p_.joint = how_.mode == 1;
        p_.table = tools::table_of(how_.rate, got.kbps / how_.channels());
        p_.budget = slots * (how_.layer == 1 ? 32 : 8);
        p_.padding = got.padding * (how_.layer == 1 ? 32 : 8);
    }

    oracle::tuned_answer answer() {
        if (how_.model == MPEG_A_MODEL_TUNED) {
            const oracle::tuned_answer answer = oracle::allocate(p_);
            p_.before.insert(p_.before.begin(), answer.now);
            if (p_.before.size() > vela::tuned::remembered_frames) p_.before.pop_back();
            return answer;
        }
        oracle::tuned_answer answer;
        std::copy_n(&p_.index[0][0][0], 2 * 32 * 3, &answer.index[0][0][0]);
        for (int i = 0; i < 64 && how_.layer == 2; ++i)
            answer.scfsi[i / 32][i % 32] = p_.scfsi[i / 32][i % 32] =
                oracle::select_scalefactors(answer.index[i / 32][i % 32]);
        static_cast<oracle::allocation_answer &>(answer) =
            oracle::allocate(static_cast<const oracle::allocation_problem &>(p_));
        return answer;
    }

    /// Samples as quantized. Where one lies on the boundary between two codes, the rounding of the
    /// arithmetic decides.
    void expect_part(const whole_frame &got, int ch, int sb, int part, int source, int index) {
        const int steps = got.steps[ch][sb];
        for (int j = 0; j < 12; ++j) {
            const double x = p_.samples[source][12 * part + j][sb] / tools::scalefactor(index);
            const double middle = (2.0 * oracle::quantize(how_.layer, x, steps) + 1 - steps) / steps;
            const double code = (x + 1) * steps / 2;
            const double tolerance = std::fabs(code - std::round(code)) < 1e-4 ? 2.0 / steps : 0;
            const int sent = got.codes.code[ch][12 * part + j][sb];
            ASSERT_NEAR(tools::fraction_of(sent, steps), middle, tolerance + 1e-12) << "sample " << j;
        }
    }

    stream how_;
    oracle::psy_model psy_;
    std::vector<oracle::tuned_model> tuned_; ///< of each channel
    int parts_;
    std::vector<float> channel_[2];
    oracle::tuned_problem p_;
};

class literal : public testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(literal, frames_carry_what_the_wording_gives) {
    constexpr std::pair<int, int> qualities[] = {{5, 48000}, {8, 44100}, {11, 32000}, {14, 44100}};
    const auto [layer, mode, model] = GetParam();
    for (int i = 0; i < 16; ++i) {
        const auto [bitrate, rate] = qualities[i / 4];
        const waveform kind = all_waveforms[std::array{1, 2, 3, 5}[i % 4]];
        const stream how{layer, mode, bitrate, bitrate % 2, rate, 2 + i % 3, 0, 0, model};
        auto pcm = how.pcm(5 * how.frame_samples(), kind);
        pcm.resize(pcm.size() - 120); // silence completes the last frame
        const auto parsed = expect_legal(how, encode(how, pcm));
        ASSERT_EQ(parsed.size(), 5u);
        literal_encoder expected(how, pcm);
        for (int f = 0; f < 5 && !HasFailure(); ++f) {
            SCOPED_TRACE(name_of(how) + ", frame " + std::to_string(f));
            expected.expect_frame(f, parsed[static_cast<unsigned>(f)]);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(layers_modes_and_models, literal,
                         testing::Combine(testing::Values(1, 2), testing::Values(0, 1, 2, 3),
                                          testing::Values(MPEG_A_MODEL_STANDARD, MPEG_A_MODEL_TUNED)));

/// Hands over what completes one frame at most.
int put_singly(mpeg_a_encoder &encoder, std::span<const std::uint8_t> pcm, std::size_t frame,
               std::size_t &pending) {
    while (!pcm.empty()) {
        const auto piece = pcm.first(std::min(frame - pending, pcm.size()));
        pcm = pcm.subspan(piece.size());
        pending = (pending + piece.size()) % frame;
        if (put(&encoder, piece) != 0) return 2;
    }
    return 0;
}

TEST(stream, any_split_of_the_input_is_seen_and_refused_as_single_frames_are) {
    std::mt19937 random(6);
    int refusals = 0;
    for (int i = 0; i < 2 * 2 * 2 * 3 * 4; ++i) {
        stream how{1 + i % 2, i / 2 % 2 * 3, 8};
        how.model = i / 4 % 2 * MPEG_A_MODEL_TUNED;
        how.width = 2 + i / 8 % 3;
        const auto width = static_cast<std::size_t>(how.width);
        auto pcm = how.pcm(90 * how.frame_samples(), all_waveforms[1 + i / 24], 3);
        const std::size_t frame = pcm.size() / 90, longest[] = {4 * width, 700 * width, 8 * frame};
        // An odd number of values is left where the last one is heard; silence completes the frame.
        const std::vector<std::uint8_t> silence(static_cast<std::size_t>(250 * how.channels() + 1)
                                                * width);
        pcm.resize(pcm.size() - silence.size());
        const encoder_pointer together = make_encoder(how), singly = make_encoder(how);
        fake_output outputs[2];
        ASSERT_EQ(mpegOutAudioInit(together.get(), &outputs[0]), 0);
        ASSERT_EQ(mpegOutAudioInit(singly.get(), &outputs[1]), 0);
        std::size_t pending = 0;
        int result = 0;
        for (std::span<const std::uint8_t> rest = pcm; !rest.empty() && result == 0;) {
            // A call may end between the channels; bytes of a cut sample behind that must not count.
            const std::size_t wanted = (1 + random() % longest[random() % 3] / width) * width;
            const auto block = rest.first(std::min(wanted, rest.size()));
            rest = rest.subspan(block.size());
            std::vector<std::uint8_t> cut(block.begin(), block.end());
            cut.resize(cut.size() + random() % width, 0x77);
            const int refused = outputs[0].requests + static_cast<int>(random() % 300);
            for (fake_output &output : outputs)
                output.refused_request = refused;
            result = put(together.get(), cut);
            ASSERT_EQ(put_singly(*singly, block, frame, pending), result);
            ASSERT_EQ(outputs[0].calls, outputs[1].calls);
        }
        refusals += result != 0;
        outputs[0].refused_request = outputs[1].refused_request = -1;
        mpegOutAudioDone(together.get(), 0);
        put(singly.get(), silence);
        ASSERT_EQ(outputs[0].calls, outputs[1].calls);
        ASSERT_EQ(outputs[0].frames, outputs[1].frames) << name_of(how) << i;
    }
    EXPECT_TRUE(refusals > 10 && refusals < 80) << refusals;
}

} // namespace
