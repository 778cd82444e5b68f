// Runs every file of the folders that are named through a fuzzer's function, without the fuzzer.
#include "byte_source.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char **argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
            std::fprintf(stderr, "%s\n", entry.path().c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
            ++files;
        }
    }
    std::printf("%d inputs without a fault\n", files);
    return files == 0; // a corpus that is not there proves nothing
}
