#include "workbench.hpp"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <regex>
#include <sndfile.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace velaenc_test {
namespace {

std::string contents(const std::filesystem::path &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

} // namespace

std::vector<frame> frames_of(const std::string &stream) {
    std::vector<frame> frames;
    bool whole = true;
    for_each_piece(stream, [&](const tools::stream_piece &piece) {
        frames.push_back({tools::parse_frame(piece.bytes), piece.offset});
        whole &= piece.is_frame && frames.back().broken_rule().empty();
    });
    return whole ? frames : std::vector<frame>{};
}

std::vector<std::int16_t> noise(std::size_t samples, unsigned seed) {
    std::vector<std::int16_t> values(samples);
    std::uint32_t state = seed;
    for (auto &value : values) {
        state = state * 1664525u + 1013904223u;
        value = static_cast<std::int16_t>(static_cast<std::int32_t>(state) >> 17);
    }
    return values;
}

std::string little_endian(std::uint64_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i, value >>= 8)
        text += static_cast<char>(value & 0xFF);
    return text;
}

std::string pcm(const std::vector<std::int16_t> &samples, int width, unsigned low) {
    std::string bytes;
    for (const int value : samples) {
        const auto scaled = static_cast<std::uint32_t>(value) << (width == 3 ? 8 : 0) | low;
        const auto real = std::bit_cast<std::uint32_t>(static_cast<float>(value) / 32768.0f);
        bytes += little_endian(width == 4 ? real : scaled, width);
    }
    return bytes;
}

std::string wav(const std::string &data, int channels, int rate, int width) {
    const auto number = [](auto value, int bytes) {
        return little_endian(static_cast<std::uint64_t>(value), bytes);
    };
    const std::string format = number(width == 4 ? 3 : 1, 2) // floating point or PCM
                               + number(channels, 2) + number(rate, 4)
                               + number(rate * channels * width, 4) + number(channels * width, 2)
                               + number(8 * width, 2);
    return "RIFF" + number(36 + data.size(), 4) + "WAVEfmt " + number(16, 4) + format + "data"
           + number(data.size(), 4) + data;
}

workbench::workbench() {
    std::string pattern = (std::filesystem::temp_directory_path() / "velaenc-test-XXXXXX").string();
    folder_ = ::mkdtemp(pattern.data());
}

workbench::~workbench() {
    std::filesystem::remove_all(folder_);
}

outcome workbench::shell(const std::string &command) const {
    const std::string out = folder_ / ".out", err = folder_ / ".err";
    put(".command", "set -o pipefail; cd '" + folder_.string() + "'; PATH='" VELAENC_FOLDER "':$PATH\n"
                        + command + "\n");
    const std::string script = (folder_ / ".command").string();
    const int status =
        std::system(("bash '" + script + "' >'" + out + "' 2>'" + err + "' </dev/null").c_str());
    const std::string said = contents(err);
    // ctest takes the last line for a skip, whatever the test comes to without that program.
    static const std::regex missing(R"(line \d+: (\S+): command not found)");
    if (std::smatch name; std::regex_search(said, name, missing))
        std::cout << "needs " << name[1] << "\n[  SKIPPED ]\n";
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), contents(out), said};
}

std::string workbench::encoded(const std::string &arguments) const {
    const auto result = run("velaenc --quiet " + arguments + " -");
    EXPECT_EQ(result.err, "") << arguments;
    return result.out;
}

outcome workbench::run(const std::string &command, int status, const std::string &words) const {
    auto result = shell(command);
    EXPECT_EQ(result.status, status) << command << ": " << result.err;
    EXPECT_NE(result.err.find(words), std::string::npos) << command << ": " << result.err;
    return result;
}

void workbench::expect_failure(const std::string &command, int status, const std::string &words) const {
    run(command, status, words);
    EXPECT_EQ(leftovers(), std::vector<std::string>{}) << command;
}

std::vector<float> workbench::heard(const std::string &arguments) const {
    const auto bytes = shell("ffmpeg -v error -i " + arguments + " -f f32le -").out;
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

void workbench::write(const std::string &name, int format, const std::vector<std::int16_t> &samples,
                      int channels, std::vector<int> speakers) const {
    put(name, "");
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = channels;
    info.format = format;
    SNDFILE *file = sf_open(path(name).c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << name;
    sf_command(file, SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_TRUE);
    if (!speakers.empty())
        sf_command(file, SFC_SET_CHANNEL_MAP_INFO, speakers.data(),
                   static_cast<int>(speakers.size() * sizeof(int)));
    sf_write_short(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
}

void workbench::put(const std::string &name, const std::string &bytes) const {
    std::ofstream(folder_ / name, std::ios::binary) << bytes;
    known_.push_back(name);
}

std::string workbench::get(const std::string &name) const {
    return contents(folder_ / name);
}

std::vector<std::string> workbench::leftovers() const {
    std::vector<std::string> names;
    for (const auto &file : std::filesystem::directory_iterator(folder_)) {
        const std::string name = file.path().filename();
        const bool own = name == ".out" || name == ".err" || std::ranges::count(known_, name) != 0;
        if (!own) names.push_back(name);
    }
    return names;
}

} // namespace velaenc_test
