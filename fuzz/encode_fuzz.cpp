// Random hosts: settings good and bad, any bytes as PCM in pieces of any size, blocks of any size,
// outputs that refuse. Usage: mp1a_fuzz [SECONDS [SEED]]; a failure shows the seed to begin with again.
#include "vela_enc_mp1a/encoder.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/common_interface_defs.h>
#endif

namespace {

std::uint64_t seed;

void show_seed() {
    std::fprintf(stderr, "failed with seed %llu\n", static_cast<unsigned long long>(seed));
}

class dice {
  public:
    explicit dice(std::uint64_t start) : engine_(start) {}
    std::uint32_t operator()() { return static_cast<std::uint32_t>(engine_()); }
    /// 0 .. n - 1
    std::uint32_t below(std::uint32_t n) { return (*this)() % n; }
    bool once_in(std::uint32_t n) { return below(n) == 0; }
    /// A value of low .. high, or now and then anything.
    std::int32_t about(std::int32_t low, std::int32_t high) {
        if (once_in(100)) return static_cast<std::int32_t>((*this)());
        return low + static_cast<std::int32_t>(below(static_cast<std::uint32_t>(high - low + 1)));
    }

  private:
    std::mt19937_64 engine_;
};

void expect(bool condition, const char *what) {
    if (condition) return;
    std::fprintf(stderr, "%s\n", what);
    show_seed();
    std::abort();
}

/// Lends a block of its own for every request and takes it away at the commit, so that the address
/// sanitizer sees every byte that is written elsewhere or later.
struct output : bufstream {
    explicit output(dice &random) : bufstream{}, roll(random) {
        size = roll.once_in(2) ? 4096 : roll.below(3000);
        request = [](bufstream *self, std::uint32_t n) { return static_cast<output *>(self)->lend(n); };
        commit = [](bufstream *self, std::uint32_t n) { return static_cast<output *>(self)->take(n); };
        chunk_size = [](bufstream *self) { return static_cast<output *>(self)->size; };
        auxinfo = [](bufstream *self, std::uint32_t offset, std::uint32_t id, const void *data,
                     std::uint32_t length) {
            static_cast<output *>(self)->note(offset, id, data, length);
            return std::uint32_t{};
        };
    }

    std::uint8_t *lend(std::uint32_t n) {
        refused |= roll.once_in(500);
        block = refused ? nullptr : std::make_unique<std::uint8_t[]>(n);
        return block.get();
    }

    std::uint32_t take(std::uint32_t n) {
        expect(n <= size, "more was committed than lent");
        if (frame.empty() && n >= 4) expect(block[0] == 0xFF && block[1] >= 0xFC, "no header");
        frame.insert(frame.end(), block.get(), block.get() + n);
        block.reset();
        refused |= roll.once_in(500);
        return n - refused;
    }

    void note(std::uint32_t offset, std::uint32_t id, const void *data, std::uint32_t length) {
        if (id == MPEG_A_HEADER_INFO) {
            expect(length == sizeof(header_info) && offset < size, "a wrong header report");
            return;
        }
        frame_info info;
        expect(id == MPEG_A_FRAME_INFO && length == sizeof info, "an unknown report");
        std::memcpy(&info, data, sizeof info);
        expect(refused || info.length == frame.size(), "a frame's length differs from its report");
        frame.clear();
    }

    dice &roll;
    std::uint32_t size;
    std::unique_ptr<std::uint8_t[]> block;
    std::vector<std::uint8_t> frame;
    bool refused = false; ///< by lending nothing or accepting less
};

void encode_once() {
    dice roll(seed);
    mpeg_a_settings settings{};
    mpegOutAudioDefaults(&settings, roll.about(-1, 20));
    settings.audio_mode = roll.about(0, 3);
    settings.audio_layer = roll.about(1, 2);
    settings.audio_bitrate = roll.about(1, 14);
    settings.emphasis = roll.about(0, 1);
    settings.error_protection = roll.about(0, 1);
    settings.pts_offset = roll.about(-1000, 1000);
    settings.pts_units = roll.about(-1, 90000);
    const std::int32_t rates[] = {32000, 44100, 48000, roll.about(32000, 48000)};
    const std::int32_t rate = rates[roll.below(4)];

    mpeg_a_encoder *const encoder = mpegOutAudioNew(nullptr, &settings, 0, roll.about(0, 7), rate);
    const std::int32_t result =
        mpegOutAudioChkSettings(nullptr, &settings, 0, rate, MPEG_A_CHECK_GENERIC_ONLY, 0);
    expect((encoder != nullptr) == (result == 0), "New and ChkSettings disagree");
    output out(roll);
    const bool bound = encoder != nullptr && mpegOutAudioInit(encoder, &out) == 0;
    expect(bound == (encoder != nullptr), "Init failed");
    for (std::uint32_t calls = roll.below(8); calls > 0; --calls) {
        std::vector<std::uint8_t> pcm(roll.below(30000));
        const bool noise = roll.once_in(2);
        for (auto &byte : pcm)
            byte = static_cast<std::uint8_t>(noise ? roll() : calls);
        const std::int32_t put =
            mpegOutAudioPutBytes(encoder, pcm.data(), static_cast<std::uint32_t>(pcm.size()));
        expect(put == 0 || put == 2, "PutBytes gave another result than 0 and 2");
        expect(put == 0 || !bound || out.refused || out.size < 1729,
               "PutBytes failed without a reason");
    }
    mpegOutAudioDone(encoder, roll.about(0, 1));
    mpegOutAudioFree(encoder);
}

} // namespace

int main(int argc, char **argv) {
    using clock = std::chrono::steady_clock;
#ifdef __SANITIZE_ADDRESS__
    __sanitizer_set_death_callback(show_seed);
#endif
    const auto end = clock::now() + std::chrono::seconds(argc > 1 ? std::atoi(argv[1]) : 10);
    const std::uint64_t first = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : std::random_device()();
    for (seed = first; clock::now() < end; ++seed)
        encode_once();
    std::printf("%llu streams without a fault\n", static_cast<unsigned long long>(seed - first));
}
