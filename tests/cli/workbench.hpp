// A folder of its own for every test, input files made by hand, and velaenc run through the shell.
#pragma once

#include "parser/frame_parser.hpp"
#include "parser/frame_scanner.hpp"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <vector>

namespace velaenc_test {

struct outcome {
    int status = -1; ///< as the shell's $?
    std::string out;
    std::string err;
};

/// Interleaved 16-bit noise, the same for the same seed.
std::vector<std::int16_t> noise(std::size_t samples, unsigned seed = 1);

std::string little_endian(std::uint64_t value, int bytes);

/// Samples as little-endian bytes, `width` bytes each: 16 bits, 24 bits (the 16-bit value times 256
/// plus `low`), or floats.
std::string pcm(const std::vector<std::int16_t> &samples, int width = 2, unsigned low = 0);

/// A WAV file of PCM of that width.
std::string wav(const std::string &data, int channels, int rate, int width = 2);

/// Calls `body` with every piece that the scanner finds in the stream.
template <class Body>
void for_each_piece(std::span<const std::uint8_t> stream, Body body) {
    tools::frame_scanner scanner([&](std::span<std::uint8_t> room) {
        const std::size_t size = std::min(room.size(), stream.size());
        std::copy_n(stream.begin(), size, room.begin());
        stream = stream.subspan(size);
        return size;
    });
    while (const auto piece = scanner.next())
        body(*piece);
}

template <class Body>
void for_each_piece(const std::string &stream, Body body) {
    for_each_piece(std::span(reinterpret_cast<const std::uint8_t *>(stream.data()), stream.size()),
                   body);
}

struct frame : tools::parsed_frame {
    std::size_t offset = 0;
};

/// All frames; none at all when one of them breaks a rule or anything else is between or after them.
std::vector<frame> frames_of(const std::string &stream);

class workbench : public testing::Test {
  protected:
    workbench();
    ~workbench() override;

    /// Runs a bash command in the test's folder, with velaenc on the PATH and pipefail set.
    outcome shell(const std::string &command) const;

    /// The same, which ends with that status and has those words on standard error.
    outcome run(const std::string &command, int status = 0, const std::string &words = "") const;

    /// The stream that velaenc writes with these arguments, without a word on standard error.
    std::string encoded(const std::string &arguments) const;

    /// The command runs so, and leaves no file.
    void expect_failure(const std::string &command, int status, const std::string &words) const;

    /// What ffmpeg decodes of a file, which other arguments may follow.
    std::vector<float> heard(const std::string &arguments) const;

    /// A file of 48 kHz in a format of libsndfile, with its number of each channel's speaker.
    void write(const std::string &name, int format, const std::vector<std::int16_t> &samples,
               int channels, std::vector<int> speakers = {}) const;

    std::string path(const std::string &name) const { return folder_ / name; }
    void put(const std::string &name, const std::string &bytes) const;
    std::string get(const std::string &name) const;

    /// Names in the folder that put() did not put there.
    std::vector<std::string> leftovers() const;

  private:
    std::filesystem::path folder_;
    mutable std::vector<std::string> known_;
};

} // namespace velaenc_test
