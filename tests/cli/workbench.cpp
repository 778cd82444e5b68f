#include "workbench.hpp"

#include "parser/frame_scanner.hpp"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace velaenc_test {
namespace {

void append(std::string &text, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>(value >> 8 * i & 0xFF);
}

std::string contents(const std::filesystem::path &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

} // namespace

std::vector<frame> frames_of(const std::string &stream) {
    std::size_t given = 0;
    tools::frame_scanner scanner([&](std::span<std::uint8_t> room) {
        const std::size_t size = stream.copy(reinterpret_cast<char *>(room.data()), room.size(), given);
        given += size;
        return size;
    });
    std::vector<frame> frames;
    while (const auto piece = scanner.next()) {
        frames.push_back({tools::parse_frame(piece->bytes), piece->offset});
        if (!piece->is_frame || !frames.back().broken_rule().empty()) return {};
    }
    return frames;
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

std::string pcm(const std::vector<std::int16_t> &samples, int width, unsigned low) {
    std::string bytes;
    for (const int value : samples) {
        const auto scaled = static_cast<std::uint32_t>(value) << (width == 3 ? 8 : 0) | low;
        append(bytes,
               width == 4 ? std::bit_cast<std::uint32_t>(static_cast<float>(value) / 32768.0f) : scaled,
               width);
    }
    return bytes;
}

std::string wav(const std::string &data, int channels, int rate, int width) {
    const auto align = static_cast<std::uint32_t>(channels * width);
    std::string file = "RIFF";
    append(file, static_cast<std::uint32_t>(36 + data.size()), 4);
    file += "WAVEfmt ";
    append(file, 16, 4);
    append(file, width == 4 ? 3 : 1, 2); // floating point or PCM
    append(file, static_cast<std::uint32_t>(channels), 2);
    append(file, static_cast<std::uint32_t>(rate), 4);
    append(file, static_cast<std::uint32_t>(rate) * align, 4);
    append(file, align, 2);
    append(file, static_cast<std::uint32_t>(8 * width), 2);
    file += "data";
    append(file, static_cast<std::uint32_t>(data.size()), 4);
    return file + data;
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
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), contents(out),
            contents(err)};
}

std::string workbench::encoded(const std::string &arguments) const {
    const auto result = shell("velaenc --quiet " + arguments + " -");
    EXPECT_EQ(result.status, 0) << arguments;
    EXPECT_EQ(result.err, "") << arguments;
    return result.out;
}

void workbench::expect_failure(const std::string &command, int status, const std::string &words) const {
    const auto result = shell(command);
    EXPECT_EQ(result.status, status) << command;
    EXPECT_NE(result.err.find(words), std::string::npos) << command << ": " << result.err;
    EXPECT_EQ(leftovers(), std::vector<std::string>{}) << command;
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
