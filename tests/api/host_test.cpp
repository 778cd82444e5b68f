// Life cycle, and hosts that refuse, truncate and fail.
#include "host/encoding.hpp"
#include "host/signals.hpp"

#include <gtest/gtest.h>
#include <sstream>
#include <tuple>
#include <xmmintrin.h>

static thread_local long allocations = 0; // by this thread; a sanitizer brings its own malloc

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool counting = false;
#else
constexpr bool counting = true;
extern "C" void *__libc_malloc(std::size_t size);
extern "C" void *malloc(std::size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
#endif

namespace {

using namespace mp1a_test;
using strings = std::vector<std::string>;

constexpr char refused[] = "A002:Could not write to audio file";

/// Layer II stereo at 224 kbit/s and 48 kHz: frames of 672 bytes from 4608 bytes of 16-bit input.
constexpr std::uint32_t frame_input = 4608, ticks = 648000;

const auto pcm = pcm_bytes(make_signal(waveform::noise, 8 * 2304), 2);

/// An encoder and its output, worked by scripts.
struct host_run {
    encoder_pointer encoder;
    fake_output output;
    explicit host_run(const stream &how = {}, std::uint32_t chunk = 4096)
        : encoder(make_encoder(how, fake_host::lookup)), output(chunk) {}

    /// Results of Init ("init", "null"), PutBytes of so many bytes from the start ("4608"), or without
    /// data ("flush"), and Done ("done", "abort").
    std::string run(const std::string &script) {
        mpeg_a_encoder *const e = encoder.get();
        std::istringstream words(script);
        std::string results;
        for (std::string word; words >> word;) {
            results += std::to_string(word == "init"    ? mpegOutAudioInit(e, &output)
                                      : word == "null"  ? mpegOutAudioInit(e, nullptr)
                                      : word == "flush" ? mpegOutAudioPutBytes(e, nullptr, 7)
                                      : word == "done"  ? mpegOutAudioDone(e, 0)
                                      : word == "abort" ? mpegOutAudioDone(e, 1)
                                                        : put(std::stoi(word)));
        }
        return results;
    }
    int put(int size) {
        return mpegOutAudioPutBytes(encoder.get(), pcm.data(), static_cast<std::uint32_t>(size));
    }
};

std::vector<std::uint8_t> undisturbed(std::size_t frames) {
    return joined(encode({}, std::span(pcm).first(frames * frame_input)));
}

TEST(host, sees_exactly_the_documented_calls) {
    fake_host::reset();
    host_run s;
    strings expected{"chunk_size 4096", "request 4096"};
    EXPECT_EQ(s.run("init 4606"), "00");
    EXPECT_EQ(s.output.calls, expected);
    EXPECT_EQ(s.run("4610 0 done done"), "0000");
    for (const char *const call : {"header 0", "commit 672", "frame 0", "chunk_size 4096",
                                   "request 4096", "header 0", "commit 672", "frame 0"})
        expected.emplace_back(call);
    EXPECT_EQ(s.output.calls, expected);
    EXPECT_EQ(s.run("4608 flush"), "22") << "after Done";
    EXPECT_EQ(s.output.calls, expected) << "a call after Done reached the output";
    EXPECT_EQ(s.output.frames[1].info.unused, 0u);
    EXPECT_EQ(fake_host::reset().messages, strings{});
}

TEST(host, gets_the_pending_samples_once_on_flush_and_on_done_but_not_on_abort) {
    const std::pair<const char *, std::size_t> cases[] = {{"init 4000", 0},
                                                          {"init 4000 flush flush", 1},
                                                          {"init 4000 flush 4000 done", 2},
                                                          {"init 4000 done done", 1},
                                                          {"init 4000 flush 4000 abort", 1}};
    for (const auto &[script, frames] : cases) {
        host_run s;
        EXPECT_EQ(s.run(script).find('2'), std::string::npos) << script;
        EXPECT_EQ(s.output.frames.size(), frames) << script;
    }
}

TEST(host, may_make_calls_out_of_order_or_without_objects) {
    fake_host &seen = fake_host::reset();
    seen.has_malloc = seen.has_free = true; // memory that is not cleared
    host_run s;
    EXPECT_EQ(s.run("4608 done init 4608 null 4608"), "200022");
    EXPECT_EQ(s.output.frames.size(), 1u);
    EXPECT_EQ(mpegOutAudioNew(nullptr, nullptr, 0, 2, 48000), nullptr);
    EXPECT_EQ(seen.messages, strings{});
    EXPECT_EQ(mpegOutAudioNew(fake_host::lookup, nullptr, 0, 2, 48000), nullptr);
    host_run none({.bitrate = 3});
    EXPECT_EQ(seen.messages, (strings{"A031:Invalid mpeg_a_settings parameter",
                                      "A025:Invalid audio bitrate code (3), range is 4 .. 14"}));
    EXPECT_EQ(none.encoder, nullptr);
    EXPECT_EQ(none.run("init 4 done"), "220");
    mpegOutAudioFree(nullptr);
}

TEST(host, initialises_again_and_gets_a_fresh_stream) {
    host_run s;
    s.run("init 14824");
    const auto calls = s.output.calls;
    fake_output second;
    ASSERT_EQ(mpegOutAudioInit(s.encoder.get(), &second), 0);
    s.run("9216");
    EXPECT_EQ(s.output.calls, calls) << "the block held before is given up without a call";
    EXPECT_EQ(second.stream, undisturbed(2)) << "history or pending samples survived";
    EXPECT_EQ(second.frames.at(1).info.time_stamp, 2 * ticks);
}

TEST(host, refusing_a_block_at_any_position_ends_the_stream_there) {
    for (int position = 0; position < 4; ++position) {
        fake_host &seen = fake_host::reset();
        host_run s;
        s.output.refused_request = position;
        testing::internal::CaptureStderr();
        // Half a frame beyond what fails: it must not count towards the next call's frame.
        EXPECT_EQ(s.run("init 20736"), "02");
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "can't request space (4096 bytes) in output bufstream\n");
        EXPECT_EQ(s.output.stream, undisturbed(static_cast<std::size_t>(position)));
        EXPECT_EQ(seen.messages, strings{refused});
        const auto calls = s.output.calls;
        EXPECT_EQ(s.run("2304 2304 100 done"), "0200");
        EXPECT_EQ(seen.messages, strings(3, refused));
        EXPECT_EQ(s.output.calls, calls) << "something reached an output that had failed";
        s.output.stream.clear();
        EXPECT_EQ(s.run("init 4608"), "00");
        EXPECT_EQ(s.output.stream, undisturbed(1));
    }
}

TEST(host, accepting_too_little_still_gets_that_frames_report_and_nothing_more) {
    for (int position = 0; position < 3; ++position) {
        host_run s;
        s.output.short_commit = position;
        EXPECT_EQ(s.run("init 18432"), "02");
        EXPECT_EQ(s.output.frames.size(), static_cast<std::size_t>(position + 1));
        EXPECT_EQ(s.output.calls.back(), "frame 0");
        EXPECT_EQ(s.output.commits, position + 1);
    }
}

TEST(host, lending_small_blocks_gets_the_same_bytes_in_more_commits) {
    // Commits of three frames; 0: the stream fails. The first block of 672 bytes would be filled to its
    // last byte, so it goes back empty.
    const std::pair<std::uint32_t, int> cases[] = {{4096, 3}, {1728, 3}, {1040, 6}, {1025, 6}, {673, 6},
                                                   {672, 7},  {671, 0},  {4, 0},    {0, 0}};
    for (const auto &[chunk, commits] : cases) {
        host_run s({}, chunk);
        testing::internal::CaptureStderr();
        EXPECT_EQ(s.run("init 13824"), commits == 0 ? "02" : "00") << chunk;
        testing::internal::GetCapturedStderr();
        EXPECT_FALSE(s.output.overrun) << chunk;
        EXPECT_EQ(s.output.stream, undisturbed(commits == 0 ? 0 : 3)) << chunk;
        EXPECT_EQ(s.output.frames.size(), commits == 0 ? 0u : 3u) << chunk;
        EXPECT_TRUE(commits == 0 || s.output.commits == commits) << s.output.commits;
        for (const auto &frame : s.output.frames)
            EXPECT_EQ(frame.info.length, 672u);
    }
}

TEST(host, memory_comes_once_from_its_pair_or_from_the_process) {
    for (int i = 0; i < 5; ++i) {
        fake_host &seen = fake_host::reset();
        seen.has_malloc = i % 2 == 0;
        seen.has_free = i < 2 || i == 4;
        seen.malloc_fails = i == 4;
        const int pair = i % 4 == 0;
        {
            host_run s;
            EXPECT_EQ(s.encoder == nullptr, i == 4);
            s.run("init 4608");
            EXPECT_EQ(s.output.stream, undisturbed(i == 4 ? 0 : 1)) << "old contents matter";
        }
        strings names{"err_printf", "malloc", "free", "err_printf", "inf_printf"};
        if (i == 4) names.resize(3);
        EXPECT_EQ(seen.names, names);
        EXPECT_EQ(seen.mallocs, pair);
        EXPECT_EQ(seen.frees, i == 4 ? 0 : pair);
        EXPECT_EQ(seen.messages, strings{});
    }
}

TEST(host, pays_for_no_allocation_while_encoding) {
    if (!counting) GTEST_SKIP() << "this build's malloc is a sanitizer's";
    fake_host::reset();
    for (int i = 0; i < 8; ++i) {
        host_run s({1 + i % 2, i / 2, 6, 1, 44100});
        s.output.recording = false;
        const long before = allocations;
        mpegOutAudioInit(s.encoder.get(), &s.output);
        for (int k = 0; k < 40; ++k)
            s.put(1000);
        mpegOutAudioDone(s.encoder.get(), 0);
        EXPECT_EQ(allocations, before);
        EXPECT_GT(s.output.commits, 4);
    }
    const long before = allocations;
    EXPECT_NE(make_encoder({}), nullptr);
    EXPECT_EQ(allocations, before + 1) << "an encoder is one block";
}

TEST(host, chooses_the_sample_width_by_the_low_three_bits) {
    const std::pair<int, std::vector<int>> cases[] = {
        {2, {0, 1, 2, 5, 6, 7, 8, 10, -6}}, {3, {3, 11, -5}}, {4, {4, 12, 1 << 20 | 4}}};
    for (const auto &[width, formats] : cases) {
        const auto expected = encode({.width = width}, pcm);
        EXPECT_EQ(expected.size(), (8u * 2 + width - 1) / width);
        for (const int format : formats)
            EXPECT_EQ(joined(encode({.width = format}, pcm)), joined(expected)) << format;
    }
}

TEST(host, starts_its_time_stamps_anywhere) {
    for (const auto &[offset, units, start] :
         std::initializer_list<std::tuple<std::int64_t, int, std::int64_t>>{
             {90000, 90000, 27000000},
             {12345, 0, 12345},
             {12345, -5, 12345},
             {-1, 7, -3857142},
             {1, 7, 3857142},
             {-648000, 0, -648000},
             {1000, 1, 27000000000},
             {1ll << 40, 0, 1ll << 40}}) {
        const auto frames = encode({.pts_offset = offset, .pts_units = units}, pcm);
        for (std::size_t f = 0; f < 8; ++f)
            EXPECT_EQ(frames.at(f).info.time_stamp, start + static_cast<std::int64_t>(f + 1) * ticks)
                << offset;
    }
}

TEST(host, keeps_its_floating_point_environment_which_does_not_change_the_stream) {
    // With infinities, and subnormal numbers in between.
    const auto floats = pcm_bytes(make_signal(waveform::broken, 8 * 2304), 4);
    std::vector<std::uint8_t> expected;
    // Rounding upward; subnormal numbers flushed to zero; traps.
    for (const unsigned environment : {0x1F80u, 0x5F80u, 0x9FC0u, 0x1900u}) {
        const unsigned usual = _mm_getcsr();
        _mm_setcsr(environment);
        host_run s({2, 0, 4, 0, 44100, 4, 1, 3});
        s.run("init");
        mpegOutAudioPutBytes(s.encoder.get(), floats.data(), static_cast<std::uint32_t>(floats.size()));
        s.run("done");
        EXPECT_EQ(_mm_getcsr(), environment);
        _mm_setcsr(usual);
        EXPECT_EQ(s.output.frames.back().info.time_stamp, 9000000 + 34560000ll * 8 / 49);
        if (expected.empty()) expected = s.output.stream;
        EXPECT_EQ(s.output.stream, expected) << environment;
    }
}

} // namespace
