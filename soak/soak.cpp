// Endless audio through functions, engine and element at once, with memory, descriptors, stamps and bytes watched:
// `./dev soak [HOURS]`. What is wrong ends the program with status 1.
#include "ways.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace {

using namespace soak;
using clock_type = std::chrono::steady_clock;

constexpr int stereo = MPEG_A_MODE_STEREO, joint = MPEG_A_MODE_JOINT_STEREO, mono = MPEG_A_MODE_MONO;
constexpr int standard = MPEG_A_MODEL_STANDARD, tuned = MPEG_A_MODEL_TUNED;

/// Every layer, rate, width and model goes through the functions; the others take what is left.
constexpr settings streams[3][3] = {
    {{"functions, Layer II at 48 kHz", 2, stereo, 11, 48000, 2, 0, standard},
     {"functions, Layer I at 44.1 kHz", 1, joint, 6, 44100, 4, 1, tuned},
     {"functions, Layer II at 32 kHz", 2, mono, 5, 32000, 3, 1, standard}},
    {{"engine, Layer II at 44.1 kHz", 2, joint, 10, 44100, 2, 1, standard},
     {"engine, Layer I at 48 kHz", 1, stereo, 12, 48000, 3, 0, tuned},
     {"engine, Layer I at 32 kHz", 1, mono, 3, 32000, 4, 1, standard}},
    {{"element, Layer II at 48 kHz", 2, joint, 9, 48000, 2, 1, tuned},
     {"element, Layer I at 44.1 kHz", 1, stereo, 10, 44100, 2, 0, standard},
     {"element, Layer II at 32 kHz", 2, mono, 6, 32000, 4, 0, standard}}};

/// A thread and its streams.
struct part {
    const char *name;
    std::unique_ptr<voice> (*make)(const settings &);
    const settings (&streams)[3];
    std::atomic<double> seconds = 0; ///< encoded so far
    std::atomic<int> rounds = 0;

    void run(const std::atomic<bool> &over) {
        std::vector<std::unique_ptr<voice>> voices;
        for (const settings &how : streams)
            voices.push_back(make(how));
        while (!over || rounds < 3) {
            double sum = 0;
            for (const auto &each : voices) {
                if (rounds % 16 == 0) each->start_afresh();
                each->sing();
                sum += each->seconds();
            }
            seconds = sum;
            ++rounds;
        }
        for (const auto &each : voices)
            each->end();
    }
};

/// Bytes of memory that the process holds.
long resident() {
    std::ifstream statm("/proc/self/statm");
    long all = 0, held = 0;
    statm >> all >> held;
    return held * ::sysconf(_SC_PAGESIZE);
}

long descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// Memory may grow until every kind of call has been made, and by what the allocator moves about after that.
class watch {
  public:
    void look(bool warm) {
        const long memory = resident(), open = descriptors();
        if (!warm || first_ == 0) {
            first_ = std::max(first_, memory);
            open_ = std::max(open_, open);
        } else if (memory > first_ + allowed_growth) {
            fail("memory has grown from " + std::to_string(first_) + " to " + std::to_string(memory)
                 + " bytes");
        } else if (open > open_) {
            fail(std::to_string(open) + " descriptors are open, and were " + std::to_string(open_));
        }
        std::printf("  %.2f MB (at first %.2f), %ld descriptors\n", static_cast<double>(memory) / 1e6,
                    static_cast<double>(first_) / 1e6, open);
    }

  private:
    static constexpr long allowed_growth = 1 << 20;
    long first_ = 0, open_ = 0;
};

} // namespace

int main(int argc, char **argv) {
    const double hours = argc > 1 ? std::strtod(argv[1], nullptr) : 1;
    if (argc > 2 || !(hours > 0)) {
        std::fprintf(stderr, "usage: soak [HOURS]\n");
        return 2;
    }
    part parts[] = {
        {"functions", by_functions, streams[0]},
        {"engine", by_engine, streams[1]},
#if defined(SOAK_ELEMENT)
        {"element", by_element, streams[2]}
#endif
    };
    std::atomic<bool> over = false;
    const auto start = clock_type::now();
    const auto elapsed = [&] {
        return std::chrono::duration<double>(clock_type::now() - start).count();
    };
    const double whole = hours * 3600, between = std::clamp(whole / 20, 0.2, 300.0);
    std::vector<std::jthread> threads;
    for (part &each : parts)
        threads.emplace_back([&each, &over] { each.run(over); });
    watch watching;
    for (double next = between; !over; next += between) {
        std::this_thread::sleep_for(std::chrono::duration<double>(next - elapsed()));
        over = elapsed() >= whole;
        double sum = 0;
        bool warm = elapsed() > std::min(whole / 4, 60.0);
        std::printf("%8.0f s: ", elapsed());
        for (const part &each : parts) {
            sum += each.seconds;
            warm &= each.rounds > 20; // the second start afresh is over
            std::printf("%s %.1f h, ", each.name, each.seconds / 3600);
        }
        std::printf("%.0f x real time;", sum / elapsed());
        watching.look(warm);
        std::fflush(stdout);
    }
    threads.clear();
    std::puts("soak: every frame, stamp and repeated segment was as it should be");
}
