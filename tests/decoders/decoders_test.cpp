// Real programs decode real audio of every kind without a complaint, in time and better with more bits.
#include "analysis/window_table.hpp"
#include "host/encoding.hpp"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace mp1a_test;

enum decoder { ffmpeg, mpg123, madplay };

/// Standard output of a shell command.
std::string output_of(const std::string &command) {
    std::string out;
    std::FILE *const pipe = popen(command.c_str(), "r");
    for (int c = 0; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;)
        out += static_cast<char>(c);
    if (pipe != nullptr) pclose(pipe);
    return out;
}

std::vector<float> samples_of(std::string_view pcm, bool floats) {
    std::vector<float> samples;
    for (std::size_t i = 0, width = floats ? 4 : 2; i + width <= pcm.size(); i += width) {
        float value = 0;
        std::int16_t integer = 0;
        std::memcpy(floats ? static_cast<void *>(&value) : &integer, pcm.data() + i, width);
        samples.push_back(floats ? value : static_cast<float>(integer) / 32768);
    }
    return samples;
}

/// @param check_crc   have ffmpeg check the CRC too; madplay always does
/// @param complaints  receives what the program said beyond its usual words
std::vector<float> decode(decoder which, const std::string &file, const stream &how, bool check_crc,
                          std::string &complaints) {
    const std::string commands[] = {
        std::string("ffmpeg -v error -nostdin ") + (check_crc ? "-err_detect crccheck" : "") + " -i "
            + file + " -f f32le -",
        "mpg123 -e f32 -s " + file,
        std::string("madplay -q -d -o raw:- ") + (how.channels() == 2 ? "-S " : "") + file};
    const std::string log = file + ".log";
    const auto pcm = output_of("exec 2>" + log + "; " + commands[which] + " || echo failed >&2");
    // mpg123 introduces itself first; what it does not like has one of these words.
    complaints = which == mpg123 ? output_of("grep -E 'Illegal|resync|rror|arning|failed' " + log)
                                 : output_of("cat " + log);
    std::remove(log.c_str());
    return samples_of(pcm, which != madplay);
}

/// Two voices, each of them in both channels but not equally loud.
std::vector<float> programme(int channels) {
    std::vector<float> voice[2], mixed;
    for (const int i : {0, 1}) // behind the header: 16-bit mono
        voice[i] = samples_of(output_of(std::string("tail -c +45 /usr/share/sounds/alsa/Front_")
                                        + (i == 0 ? "Left.wav" : "Right.wav")),
                              false);
    for (std::size_t i = 0; i < std::min(voice[0].size(), voice[1].size()); ++i)
        for (int c = 0; c < channels; ++c)
            mixed.push_back(0.7F * voice[c][i] + 0.2F * voice[1 - c][i]);
    return mixed;
}

/// Energy of the input over that of the difference, in dB; `decoded` comes `shift` values later.
double snr(const std::vector<float> &input, const std::vector<float> &decoded, int shift) {
    double energy = 0, error = 1e-30;
    for (std::size_t i = 0; i < input.size() && i + shift < decoded.size(); ++i) {
        const double in = input[i];
        energy += in * in;
        error += std::pow(in - decoded[i + shift], 2);
    }
    return 10 * std::log10(energy / error);
}

class decoders : public testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(decoders, take_every_frame_without_a_complaint_and_in_time) {
    const auto [layer, mode, rate] = GetParam();
    const int channels = mode == MPEG_A_MODE_MONO ? 1 : 2, delay = channels * (layer == 1 ? 545 : 481);
    const auto input = programme(channels);
    if (input.empty()) GTEST_SKIP() << "needs the recordings of alsa-utils";
    for (const char *const program : {"ffmpeg", "mpg123", "madplay"}) {
        if (output_of(std::string("command -v ") + program).empty())
            GTEST_SKIP() << "needs " << program;
    }
    const std::string file = testing::TempDir() + "decoders." + std::to_string(getpid());
    double previous[3] = {-10, -10, -10};
    const int least = channels == 2 ? 4 : layer == 1 ? 3 : 1;
    for (const int index : {least, layer == 1 ? 8 : 5, channels == 1 && layer == 2 ? 10 : 11, 14}) {
        const stream how{layer, mode, index, 1 - index % 2, rate};
        // By ISO/IEC 11172-3, 2.4.2.3; madplay insists on that.
        const bool forbidden = layer == 2 && (channels == 1 ? index == 14 : index == 5);
        const auto frames = encode(how, pcm_bytes(input, 2));
        const auto bytes = joined(frames);
        std::ofstream(file, std::ios::binary) << std::string(bytes.begin(), bytes.end());
        for (const decoder which : {ffmpeg, mpg123, madplay}) {
            SCOPED_TRACE("decoder " + std::to_string(which) + ", index " + std::to_string(index));
            if (which == madplay && forbidden) continue;
            // ffmpeg takes the CRC of Layer I joint stereo over the wrong bits, and drops leading
            // frames where the mode changes from frame to frame.
            const bool joint = which == ffmpeg && mode == MPEG_A_MODE_JOINT_STEREO;
            std::string complaints;
            const auto out =
                decode(which, file, how, how.crc == 1 && !(joint && layer == 1), complaints);
            EXPECT_EQ(complaints, "");
            if (joint) continue;
            EXPECT_EQ(out.size(), frames.size() * how.frame_samples() * channels);
            const double ratio = snr(input, out, delay);
            for (int other = 0; other < 1200 * channels && index == 14; other += channels)
                EXPECT_TRUE(other == delay || snr(input, out, other) < ratio) << other;
            // Beyond 60 dB nothing is audible, and Layer I leaves bits unused.
            EXPECT_GT(ratio, std::min(previous[which] + 0.5, 60.0));
            EXPECT_GT(ratio, index == 14 ? 35 : 0);
            previous[which] = ratio;
        }
    }
    std::remove(file.c_str());
}

INSTANTIATE_TEST_SUITE_P(layers_modes_rates, decoders,
                         testing::Combine(testing::Values(1, 2), testing::Values(0, 1, 2, 3),
                                          testing::Values(32000, 44100, 48000)));

TEST(window, is_the_one_that_an_independent_decoder_carries) {
    // mpg123 has the prototype as a table of long integers.
    const std::string path =
        output_of("ldd \"$(command -v mpg123)\" 2>/dev/null | grep -om1 '/[^ ]*libmpg123[^ ]*'");
    if (path.empty()) GTEST_SKIP() << "needs mpg123 with a library of its own";
    const std::vector<std::int64_t> table(vela::window_prototype.begin(), vela::window_prototype.end());
    const std::string_view bytes(reinterpret_cast<const char *>(table.data()), 8 * table.size());
    EXPECT_NE(output_of("cat " + path).find(bytes), std::string::npos);
}

} // namespace
