// Many encoders of different settings at once, each handed from one thread to another between its calls.
#include "host/encoding.hpp"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace {

using namespace mp1a_test;

/// One encoder: Init, the PCM in pieces that end within samples and frames, Done; a call a turn.
struct task {
    static constexpr int pieces = 5, turns = pieces + 2;

    task(const stream &settings, vela::level kernels, unsigned seed)
        : how(settings), level(kernels), encoder(make_encoder(settings)),
          pcm(how.pcm(how.frame_samples() * 3 + 50, all_waveforms[seed % std::size(all_waveforms)],
                      seed)) {}

    void take(int turn) {
        // Of the one who had the encoder before; whoever waits here waits for a turn that somebody is in.
        while (turn_.load(std::memory_order_acquire) != turn)
            std::this_thread::yield();
        if (turn == 0) {
            encoder->init(&output, level);
        } else if (turn <= pieces) {
            const std::size_t samples = pcm.size() / how.width, first = samples * (turn - 1) / pieces;
            const auto piece = std::span(pcm).subspan(first * how.width,
                                                      (samples * turn / pieces - first) * how.width);
            mpegOutAudioPutBytes(encoder.get(), piece.data(), static_cast<std::uint32_t>(piece.size()));
        } else {
            mpegOutAudioDone(encoder.get(), 0);
        }
        turn_.store(turn + 1, std::memory_order_release);
    }

    stream how;
    vela::level level;
    encoder_pointer encoder;
    std::vector<std::uint8_t> pcm;
    fake_output output;

  private:
    std::atomic<int> turn_ = 0;
};

TEST(load, of_256_encoders_on_all_cores_changes_no_byte_of_any_of_them) {
    constexpr int count = 256;
    std::vector<std::unique_ptr<task>> tasks;
    for (unsigned i = 0; tasks.size() < count; ++i) {
        std::mt19937 random(i);
        const auto below = [&](unsigned n) { return static_cast<int>(random() % n); };
        constexpr int frequencies[] = {32000, 44100, 48000};
        stream how{
            1 + below(2), below(4), 1 + below(14), below(2), frequencies[below(3)], 2 + below(3), 1, 3};
        how.model = below(2) * MPEG_A_MODEL_TUNED;
        auto made = std::make_unique<task>(how, levels()[random() % levels().size()], i);
        if (made->encoder != nullptr)
            tasks.push_back(std::move(made)); // a bitrate that goes with the mode
    }
    std::atomic<int> next = 0;
    std::vector<std::jthread> threads;
    for (unsigned n = std::max(4U, std::thread::hardware_concurrency()); n > 0; --n)
        threads.emplace_back([&] {
            for (int ticket; (ticket = next++) < count * task::turns;)
                tasks[ticket % count]->take(ticket / count);
        });
    threads.clear();
    for (const auto &one : tasks) {
        const auto alone = encode(one->how, one->pcm, one->level);
        EXPECT_GE(alone.size(), 4U);
        EXPECT_TRUE(one->output.frames == alone);
    }
}

} // namespace
