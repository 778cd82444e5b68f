// The example host, run as a user runs it: it loads the shared library and writes a file.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

namespace mp1a_test {
namespace {

TEST(engine_example, the_file_it_writes_is_a_row_of_whole_frames) {
    const auto file =
        std::filesystem::temp_directory_path() / ("engine_example_" + std::to_string(::getpid()));
    const std::string command = "'" ENGINE_HOST "' '" ENGINE_LIBRARY "' '" + file.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    std::ifstream in(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    std::filesystem::remove(file);
    // One second of 48 kHz Layer II at 384 kbit/s: 41 2/3 frames of 144 * 384000 / 48000 bytes.
    ASSERT_EQ(bytes.size(), 42u * 1152);
    for (std::size_t at = 0; at < bytes.size(); at += 1152) {
        // Sync, MPEG-1, Layer II, CRC on; index 14, 48 kHz, no padding; stereo.
        EXPECT_EQ(bytes.substr(at, 4), std::string("\xFF\xFC\xE4\x00", 4)) << at;
        EXPECT_NE(bytes.substr(at + 6, 32), std::string(32, '\0')) << "an empty allocation at " << at;
    }
}

TEST(engine_example, a_missing_library_and_an_unwritable_file_fail) {
    EXPECT_NE(std::system("'" ENGINE_HOST "' /nowhere/lib.so /dev/null 2>/dev/null"), 0);
    EXPECT_NE(std::system("'" ENGINE_HOST "' '" ENGINE_LIBRARY "' /nowhere/file.mp2 2>/dev/null"), 0);
}

} // namespace
} // namespace mp1a_test
