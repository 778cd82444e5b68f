// Endless streams and random hosts at once, with memory, descriptors, stamps and bytes watched: `./dev soak [HOURS]`.
// What is wrong ends the program with status 1.
#include "byte_source.hpp"
#include "engine/engine_host.hpp"
#include "parser/frame_parser.hpp"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <thread>
#include <unistd.h>

// The fuzzers' functions; the build gives each a name of its own.
extern "C" int soak_encoder(const std::uint8_t *data, std::size_t size);
extern "C" int soak_engine(const std::uint8_t *data, std::size_t size);
extern "C" int soak_element(const std::uint8_t *data, std::size_t size);

namespace {

using namespace mp1a_test;
using fuzz::expect;
using clock_type = std::chrono::steady_clock;

/// By how many ticks stamps at 44.1 kHz may be off: of the table of docs/host-guide.md what a run comes to.
std::int64_t promised_drift(double seconds, int layer) {
    if (seconds <= 7 * 3600) return layer == 1 ? 14 : 10;
    if (seconds <= 24 * 3600) return layer == 1 ? 304 : 176;
    return layer == 1 ? 11676 : 4521; // a week
}

/// The bytes of a segment by the pattern of its padding, which the rounding of an endless sum may move at 44.1 kHz.
using known_bytes = std::map<std::vector<bool>, std::vector<std::uint8_t>>;

/// A stream, by the functions or the engine, that repeats a segment of sound; padding repeats with it.
class voice {
  public:
    static constexpr int instants = 49 * 1152;

    voice(const stream &how, bool by_engine, known_bytes &known)
        : how_(how), by_engine_(by_engine), known_(known), pcm_(how.pcm(instants, waveform::onset)) {
        engine_.configure(how);
        engine_.bind(pushed_);
        mpegOutAudioInit(encoder_.get(), &lent_);
    }

    /// Encodes the segment once more, in pieces that may end between the channels.
    void sing() {
        for (std::span<const std::uint8_t> rest = pcm_; !rest.empty();) {
            const std::size_t wanted = (1 + random_() % 9000) * static_cast<std::size_t>(how_.width);
            const auto piece = rest.first(std::min(wanted, rest.size()));
            const int result = by_engine_ ? engine_.put(piece.data(), static_cast<i32>(piece.size()))
                                          : put(encoder_.get(), piece);
            expect(result == 0, "a call fails");
            rest = rest.subspan(piece.size());
        }
        auto &frames = by_engine_ ? pushed_.frames : lent_.frames;
        std::vector<bool> padding;
        padding.reserve(frames.size());
        for (const delivered_frame &frame : frames)
            padding.push_back(judge(frame));
        // The first segment has nothing before it, all others have the segment itself.
        const auto bytes = joined(frames);
        expect(rounds_++ == 0 || known_.try_emplace(padding, bytes).first->second == bytes,
               "the segment has other bytes than before");
        frames.clear();
        lent_.calls.clear(), lent_.stream.clear(), pushed_.calls.clear();
    }

    /// The same, in a young stream too at times; whoever has the voice waits for the one before.
    void sing(std::int64_t turn) {
        while (turn_.load(std::memory_order_acquire) != turn)
            std::this_thread::yield();
        sing();
        if (turn % 16 == 1) {
            voice young(how_, !by_engine_, known_);
            young.sing(), young.sing();
        }
        turn_.store(turn + 1, std::memory_order_release);
    }

    double seconds() const { return 1.0 * instants / how_.rate * static_cast<double>(turn_); }

  private:
    /// @return whether the frame is padded
    bool judge(const delivered_frame &frame) {
        const tools::parsed_frame parsed = tools::parse_frame(frame.bytes);
        expect(parsed.broken_rule().empty() && parsed.layer == how_.layer && parsed.rate == how_.rate
                   && parsed.crc == how_.crc && parsed.channels() == how_.channels(),
               "a frame breaks a rule or is another stream's");
        bytes_ += static_cast<std::int64_t>(frame.bytes.size());
        ++frames_;
        // On average a frame has exactly its share of the bitrate; padding is at most a slot early or late.
        const std::int64_t share =
            frames_ * parsed.whole_slots() + frames_ * parsed.slot_rest() / how_.rate;
        expect(std::abs(bytes_ / parsed.slot_bytes() - share) <= 1,
               "another length than the bitrate's");
        // samples * 27000000 / rate, without an overflow before the sun goes out
        const std::int64_t samples = frames_ * how_.frame_samples();
        const std::int64_t exact =
            samples / how_.rate * 27000000 + samples % how_.rate * 27000000 / how_.rate;
        const std::int64_t drift =
            how_.rate == 44100 ? promised_drift(static_cast<double>(exact) / 27e6, how_.layer) : 0;
        expect(std::abs(frame.info.time_stamp - exact) <= drift, "another stamp than the time's");
        return parsed.padding != 0;
    }

    const stream how_;
    const bool by_engine_;
    known_bytes &known_;
    const std::vector<std::uint8_t> pcm_;
    encoder_pointer encoder_ = make_encoder(how_);
    fake_output lent_;
    sink pushed_;
    user engine_; // it lets go of the sink
    std::minstd_rand random_{1};
    std::int64_t rounds_ = 0, frames_ = 0, bytes_ = 0;
    std::atomic<std::int64_t> turn_ = 0;
};

/// Memory and descriptors may grow until every kind of call has been made, memory also by what the allocator moves
/// about after that.
class watch {
  public:
    void look(bool is_warm) {
        std::ifstream statm("/proc/self/statm");
        long all = 0, held = 0;
        statm >> all >> held;
        held *= ::sysconf(_SC_PAGESIZE);
        const long open = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
        std::fprintf(stderr, "  %.2f MB (at first %.2f), %ld descriptors\n",
                     static_cast<double>(held) / 1e6, static_cast<double>(first_) / 1e6, open);
        expect(!warm_ || (held <= first_ + allowed_growth && open <= open_),
               "memory or descriptors grow");
        if (!warm_) first_ = std::max(first_, held), open_ = std::max(open_, open);
        warm_ = is_warm;
    }

  private:
    static constexpr long allowed_growth = 4 << 20;
    long first_ = 0, open_ = 0;
    bool warm_ = false;
};

} // namespace

int main(int argc, char **argv) {
    const double hours = argc > 1 ? std::strtod(argv[1], nullptr) : 1;
    if (argc > 2 || !(hours > 0)) {
        std::fprintf(stderr, "usage: soak [HOURS]\n");
        return 2;
    }
    GTEST_FLAG_SET(break_on_failure, true);
    expect(std::freopen("/dev/null", "w", stdout) != nullptr,
           "no /dev/null"); // where engines complain about keys
    constexpr int rates[] = {32000, 44100, 48000};
    std::vector<known_bytes> known(48);
    std::vector<std::unique_ptr<voice>> voices;
    for (int i = 0; i < 48; ++i) {
        stream how{1 + i % 2, i / 2 % 4, 5 + i % 10, i % 5 % 2, rates[i % 3], 2 + i / 3 % 3};
        how.model = i / 24 * MPEG_A_MODEL_TUNED;
        auto &bytes = known[static_cast<std::size_t>(i)];
        voice alone(how, i % 4 < 2, bytes);
        alone.sing(), alone.sing();
        voices.push_back(std::make_unique<voice>(how, i % 4 >= 2, bytes));
    }

    std::atomic<bool> over = false;
    std::atomic<std::int64_t> next = 0, hosts = 0;
    const auto count = static_cast<std::int64_t>(voices.size());
    std::vector<std::jthread> threads;
    for (unsigned n = std::max(4U, std::thread::hardware_concurrency()); n > 0; --n)
        threads.emplace_back([&] {
            for (std::int64_t ticket; !over;)
                ticket = next++, voices[static_cast<std::size_t>(ticket % count)]->sing(ticket / count);
        });
    const auto act = [&](int (*fuzzer)(const std::uint8_t *, std::size_t)) {
        for (std::mt19937 random(1); !over; ++hosts) {
            std::vector<std::uint8_t> script(random() % 1000);
            std::generate(script.begin(), script.end(), std::ref(random));
            fuzzer(script.data(), script.size());
        }
    };
    threads.emplace_back(act, soak_encoder);
    threads.emplace_back(act, soak_engine);
#if defined(SOAK_ELEMENT)
    threads.emplace_back(act, soak_element);
#endif

    const auto start = clock_type::now();
    const double whole = hours * 3600, between = std::clamp(whole / 20, 0.2, 300.0);
    watch watching;
    while (!over) {
        std::this_thread::sleep_for(std::chrono::duration<double>(between));
        const double elapsed = std::chrono::duration<double>(clock_type::now() - start).count();
        const std::int64_t rounds = next / count;
        over = elapsed >= whole && rounds > 3;
        double seconds = 0;
        for (const auto &each : voices)
            seconds += each->seconds();
        std::fprintf(stderr, "%8.0f s: %.1f h of audio, %lld hosts;", elapsed, seconds / 3600,
                     static_cast<long long>(hosts));
        watching.look(rounds > 20 && elapsed > std::min(whole / 4, 60.0));
    }
    threads.clear();
    std::fputs("soak: every frame, stamp and repeated segment was as it should be\n", stderr);
}
