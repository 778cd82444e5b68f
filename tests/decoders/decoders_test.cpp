// Real programs decode real audio at every layer, mode and rate without a complaint, in time and better
// with more bits.
#include "analysis/window_table.hpp"
#include "host/encoding.hpp"
#include "host/signals.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <unistd.h>

namespace {

using namespace mp1a_test;

struct decoded {
    bool installed = false;
    std::string complaints;     ///< what the program said beyond its usual words
    std::vector<float> samples; ///< interleaved, full scale 1.0
};

enum class decoder { ffmpeg, mpg123, madplay };

/// Standard output of a shell command.
std::string output_of(const std::string &command) {
    std::string out;
    std::FILE *const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return out;
    char buffer[65536];
    while (const std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe))
        out.append(buffer, n);
    pclose(pipe);
    return out;
}

/// @param check_crc  have ffmpeg check the CRC too; madplay always does
decoded decode(decoder which, const std::string &file, int channels, bool check_crc) {
    const bool floats = which != decoder::madplay;
    const std::string program = which == decoder::ffmpeg   ? "ffmpeg"
                                : which == decoder::mpg123 ? "mpg123"
                                                           : "madplay";
    const std::string arguments =
        which == decoder::ffmpeg
            ? std::string(" -v error -nostdin ") + (check_crc ? "-err_detect crccheck" : "") + " -i "
                  + file + " -f f32le -"
        : which == decoder::mpg123
            ? " -e f32 -s " + file
            : std::string(" -q -d -o raw:- ") + (channels == 2 ? "-S " : "") + file;
    decoded result;
    result.installed = !output_of("command -v " + program).empty();
    if (!result.installed) return result;
    const std::string log = file + '.' + program;
    const std::string bytes =
        output_of("exec 2>" + log + "; " + program + arguments + " || echo failed >&2");
    std::ifstream in(log);
    for (std::string line; std::getline(in, line);) {
        // mpg123 introduces itself first; what it does not like has one of these words.
        const bool bad =
            std::ranges::any_of(std::array{"Illegal", "resync", "rror", "arning", "failed"},
                                [&](const char *word) { return line.find(word) != line.npos; });
        if (bad || which != decoder::mpg123) result.complaints += line + '\n';
    }
    std::remove(log.c_str());
    const std::size_t width = floats ? sizeof(float) : sizeof(std::int16_t);
    for (std::size_t i = 0; i + width <= bytes.size(); i += width) {
        float value = 0;
        std::int16_t integer = 0;
        std::memcpy(floats ? static_cast<void *>(&value) : &integer, bytes.data() + i, width);
        result.samples.push_back(floats ? value : static_cast<float>(integer) / 32768);
    }
    return result;
}

/// Samples of a 16-bit mono WAV file; empty when there is none.
std::vector<float> speech(const std::string &name) {
    std::ifstream in("/usr/share/sounds/alsa/" + name, std::ios::binary);
    const std::string file((std::istreambuf_iterator<char>(in)), {});
    const auto data = file.find("data");
    std::vector<float> samples;
    for (std::size_t i = data + 8; data != file.npos && i + 1 < file.size(); i += 2) {
        std::int16_t value;
        std::memcpy(&value, file.data() + i, sizeof value);
        samples.push_back(static_cast<float>(value) / 32768);
    }
    return samples;
}

/// Two voices, each of them in both channels but not equally loud.
std::vector<float> programme(int channels) {
    const auto left = speech("Front_Left.wav"), right = speech("Front_Right.wav");
    std::vector<float> mixed[2];
    for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
        mixed[0].push_back(0.7F * left[i] + 0.2F * right[i]);
        mixed[1].push_back(0.2F * left[i] + 0.7F * right[i]);
    }
    return channels == 1 ? mixed[0] : interleave(mixed[0], mixed[1]);
}

/// Energy of the input over that of the difference, in dB, with the decoded signal that much later.
double snr(const std::vector<float> &input, const std::vector<float> &decoded, int channels,
           int delay) {
    double energy = 0, error = 1e-30;
    const auto shift = static_cast<std::size_t>(delay) * static_cast<std::size_t>(channels);
    for (std::size_t i = 0; i < input.size() && i + shift < decoded.size(); ++i) {
        const double in = static_cast<double>(input[i]);
        energy += in * in;
        error += std::pow(in - static_cast<double>(decoded[i + shift]), 2);
    }
    return 10 * std::log10(energy / error);
}

/// The delay at which the decoded signal fits best.
int measured_delay(const std::vector<float> &input, const std::vector<float> &decoded, int channels) {
    int best = 0;
    for (int delay = 1; delay < 1200; ++delay) {
        if (snr(input, decoded, channels, delay) > snr(input, decoded, channels, best)) best = delay;
    }
    return best;
}

struct quality {
    int index;
    bool forbidden; ///< by ISO/IEC 11172-3, 2.4.2.3, in this mode; madplay insists on that
};

std::vector<quality> qualities(int layer, int channels) {
    if (layer == 1) return {{channels == 1 ? 3 : 4, false}, {8, false}, {11, false}, {14, false}};
    if (channels == 1) return {{1, false}, {5, false}, {10, false}, {14, true}};
    return {{4, false}, {5, true}, {11, false}, {14, false}};
}

std::string write_file(const std::vector<delivered_frame> &frames, const std::string &name) {
    const std::string path = testing::TempDir() + name + '.' + std::to_string(getpid());
    std::ofstream out(path, std::ios::binary);
    for (const auto &frame : frames)
        out.write(reinterpret_cast<const char *>(frame.bytes.data()),
                  static_cast<std::streamsize>(frame.bytes.size()));
    return path;
}

class decoders : public testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(decoders, take_every_frame_without_a_complaint_and_in_time) {
    const auto [layer, mode, rate] = GetParam();
    const int channels = mode == MPEG_A_MODE_MONO ? 1 : 2;
    const auto input = programme(channels);
    if (input.empty()) GTEST_SKIP() << "the recordings of alsa-utils are not installed";
    const int delay = layer == 1 ? 545 : 481;
    double previous[3] = {-10, -10, -10};
    for (const auto &[index, forbidden] : qualities(layer, channels)) {
        const stream how{
            .layer = layer, .mode = mode, .bitrate = index, .crc = 1 - index % 2, .rate = rate};
        const auto frames = encode(how, pcm_bytes(input, 2));
        ASSERT_FALSE(frames.empty());
        const std::string file = write_file(
            frames, "decoders." + std::to_string(100 * layer + 10 * mode) + std::to_string(rate));
        for (const decoder which : {decoder::ffmpeg, decoder::mpg123, decoder::madplay}) {
            SCOPED_TRACE("decoder " + std::to_string(static_cast<int>(which)) + ", index "
                         + std::to_string(index));
            if (which == decoder::madplay && forbidden) continue;
            // ffmpeg takes the CRC of Layer I joint stereo over the wrong bits, and drops leading
            // frames where the mode changes from frame to frame.
            const bool ffmpeg_joint = which == decoder::ffmpeg && mode == MPEG_A_MODE_JOINT_STEREO;
            const decoded out =
                decode(which, file, channels, how.crc == 1 && !(ffmpeg_joint && layer == 1));
            if (!out.installed)
                GTEST_SKIP() << "decoder " << static_cast<int>(which) << " is not installed";
            EXPECT_EQ(out.complaints, "");
            if (ffmpeg_joint) continue;
            EXPECT_EQ(out.samples.size(),
                      frames.size() * static_cast<std::size_t>(how.frame_samples() * channels));
            const bool best = index == 14;
            EXPECT_EQ(best ? measured_delay(input, out.samples, channels) : delay, delay);
            double &worse = previous[static_cast<int>(which)];
            const double ratio = snr(input, out.samples, channels, delay);
            // Beyond 60 dB nothing is audible, and Layer I leaves bits unused.
            EXPECT_GT(ratio, std::min(worse + 0.5, 60.0));
            EXPECT_GT(ratio, best ? 35 : 0);
            worse = ratio;
        }
        std::remove(file.c_str());
    }
}

INSTANTIATE_TEST_SUITE_P(layers_modes_rates, decoders,
                         testing::Combine(testing::Values(1, 2), testing::Values(0, 1, 2, 3),
                                          testing::Values(32000, 44100, 48000)));

TEST(window, is_the_one_that_an_independent_decoder_carries) {
    // mpg123 has the prototype as a table of long integers.
    const std::string line =
        output_of("ldd \"$(command -v mpg123)\" 2>/dev/null | grep -o '/[^ ]*libmpg123[^ ]*'");
    if (line.empty()) GTEST_SKIP() << "mpg123 is not installed, or brings its library elsewhere";
    std::ifstream in(line.substr(0, line.find('\n')), std::ios::binary);
    const std::string library((std::istreambuf_iterator<char>(in)), {});
    std::string table;
    for (const std::int64_t value : vela::window_prototype)
        table.append(reinterpret_cast<const char *>(&value), sizeof value);
    EXPECT_NE(library.find(table), library.npos);
}

} // namespace
