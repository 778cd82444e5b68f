// Writes a long WAV file to standard output: mp1a_bench_wav SECONDS, 48 kHz, stereo, 16 bits.
#include "signal.hpp"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::uint32_t rate = 48000, channels = 2, instant_bytes = 4;
constexpr std::uint32_t pattern_seconds = 10; ///< repeated: music is slow to make

struct wav_header {
    char riff[4] = {'R', 'I', 'F', 'F'};
    std::uint32_t riff_bytes;
    char wave_fmt[8] = {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
    std::uint32_t fmt_bytes = 16;
    std::uint32_t pcm_of_channels = 1 | channels << 16;
    std::uint32_t sample_rate = rate;
    std::uint32_t byte_rate = rate * instant_bytes;
    std::uint32_t instant_and_sample_bits = instant_bytes | 16 << 16;
    char data[4] = {'d', 'a', 't', 'a'};
    std::uint32_t data_bytes;
};

} // namespace

int main(int argc, char **argv) {
    const auto patterns =
        static_cast<std::uint32_t>(argc == 2 ? std::atoi(argv[1]) : 0) / pattern_seconds;
    const auto music = vela::bench::make_music(pattern_seconds, rate, channels);
    const std::uint32_t bytes = patterns * pattern_seconds * rate * instant_bytes;
    const wav_header header{.riff_bytes = 36 + bytes, .data_bytes = bytes};
    bool works = std::fwrite(&header, sizeof header, 1, stdout) == 1;
    for (std::uint32_t i = 0; i < patterns && works; ++i)
        works = std::fwrite(music.data(), sizeof music[0], music.size(), stdout) == music.size();
    return works && std::fflush(stdout) == 0 ? 0 : 1;
}
