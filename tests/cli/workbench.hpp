// A folder of its own for every test, input files made by hand, and velaenc run through the shell.
#pragma once

#include "parser/frame_parser.hpp"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
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

/// Samples as little-endian bytes, `width` bytes each: 16 bits, 24 bits (the 16-bit value times 256
/// plus `low`), or floats.
std::string pcm(const std::vector<std::int16_t> &samples, int width = 2, unsigned low = 0);

/// A WAV file of PCM of that width.
std::string wav(const std::string &data, int channels, int rate, int width = 2);

struct frame : tools::parsed_frame {
    std::size_t offset = 0;
};

/// Frames from the first byte to the last; none at all when one of them breaks a rule, or when anything
/// else is between or after them.
std::vector<frame> frames_of(const std::string &stream);

class workbench : public testing::Test {
  protected:
    workbench();
    ~workbench() override;

    /// Runs a bash command in the test's folder, with velaenc on the PATH and pipefail set.
    outcome shell(const std::string &command) const;

    /// The stream that velaenc writes with these arguments, without a word on standard error.
    std::string encoded(const std::string &arguments) const;

    /// The command ends with that status and those words, and leaves no file.
    void expect_failure(const std::string &command, int status, const std::string &words) const;

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
