// Life cycle, and hosts that refuse, truncate and fail.
#include "host/encoding.hpp"
#include "host/sanitizer.hpp"
#include "simd/float_environment.hpp"

#include <gtest/gtest.h>
#include <sstream>

static thread_local long allocations = 0; // by this thread; a sanitizer brings its own malloc

#if HAS_OWN_MALLOC
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

const auto pcm = stream{}.pcm(8 * 1152);

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
            results +=
                std::to_string(word == "init"    ? mpegOutAudioInit(e, &output)
                               : word == "null"  ? mpegOutAudioInit(e, nullptr)
                               : word == "flush" ? mpegOutAudioPutBytes(e, nullptr, 7)
                               : word == "done"  ? mpegOutAudioDone(e, 0)
                               : word == "abort" ? mpegOutAudioDone(e, 1)
                                                 : put(e, std::span(pcm).first(std::stoul(word))));
        }
        return results;
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

TEST(host, may_make_calls_in_any_order_and_gets_the_pending_samples_once) {
    const struct {
        const char *script, *results;
        std::size_t frames;
    } cases[] = {{"4608 done init 4608 null 4608", "200022", 1},
                 {"init 4000", "00", 0},
                 {"init 4000 flush flush", "0000", 1},
                 {"init 4000 flush 4000 done", "00000", 2},
                 {"init 4000 done done", "0000", 1},
                 {"init 4000 flush 4000 abort", "00000", 1}};
    for (const auto &[script, results, frames] : cases) {
        fake_host &seen = fake_host::reset();
        seen.has_malloc = seen.has_free = true; // memory that is not cleared
        host_run s;
        EXPECT_EQ(s.run(script), results) << script;
        EXPECT_EQ(s.output.frames.size(), frames) << script;
        EXPECT_EQ(seen.messages, strings{});
    }
}

TEST(host, may_make_calls_without_objects) {
    fake_host &seen = fake_host::reset();
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

TEST(host, lending_small_blocks_gets_whole_frames_or_none_and_may_begin_afresh) {
    // The block's size; then the frames and the commits of four. The first block of 672 bytes would be
    // filled to its last byte, so it goes back empty, as shorter ones do.
    const struct {
        std::uint32_t chunk;
        std::size_t frames;
        int commits;
    } cases[] = {{4096, 4, 4}, {1728, 4, 4}, {1040, 4, 8}, {1025, 4, 8}, {673, 4, 8},
                 {672, 4, 9},  {671, 0, 1},  {4, 0, 1},    {0, 0, 1}};
    for (const auto &[chunk, frames, commits] : cases) {
        SCOPED_TRACE(chunk);
        fake_host &seen = fake_host::reset();
        host_run s({}, chunk);
        testing::internal::CaptureStderr();
        EXPECT_EQ(s.run("init 20000"), frames == 4 ? "00" : "02");
        const std::string said =
            "can't request space (" + std::to_string(chunk) + " bytes) in output bufstream\n";
        EXPECT_EQ(testing::internal::GetCapturedStderr(), frames == 4 ? "" : said);
        EXPECT_EQ(s.output.stream, undisturbed(frames));
        EXPECT_EQ(s.output.frames.size(), frames);
        EXPECT_EQ(s.output.commits, commits);
        EXPECT_FALSE(s.output.overrun);
        for (const auto &frame : s.output.frames)
            EXPECT_EQ(frame.info.length, 672u);
        const auto calls = s.output.calls;
        if (frames < 4) {
            EXPECT_EQ(seen.messages, strings{refused});
            // What came behind the frame that failed does not count towards the next call's frame.
            EXPECT_EQ(s.run("2304 2304 100"), "020");
            EXPECT_EQ(seen.messages, strings(2, refused));
        }
        fake_output fresh;
        ASSERT_EQ(mpegOutAudioInit(s.encoder.get(), &fresh), 0);
        EXPECT_EQ(s.run("9216 abort"), "00");
        EXPECT_EQ(s.output.calls, calls)
            << "something reached an output that had failed or was given up";
        EXPECT_EQ(fresh.stream, undisturbed(2)) << "history or pending samples survived";
        EXPECT_EQ(fresh.frames.at(0).info.length, 672u);
        EXPECT_EQ(fresh.frames.at(1).info.time_stamp, 2 * ticks);
    }
}

TEST(host, memory_comes_once_from_its_pair_or_from_the_process) {
    for (int i = 0; i < 5; ++i) {
        fake_host &seen = fake_host::reset();
        seen.has_malloc = i % 2 == 0;
        seen.has_free = i < 2 || i == 4;
        seen.malloc_fails = i == 4;
        mpeg_a_settings settings = stream{}.settings();
        seen.spoilt = &settings;
        const int pair = i % 4 == 0;
        {
            fake_output output;
            const encoder_pointer encoder(mpegOutAudioNew(fake_host::lookup, &settings, 0, 2, 48000),
                                          mpegOutAudioFree);
            EXPECT_EQ(encoder == nullptr, i == 4);
            mpegOutAudioInit(encoder.get(), &output);
            put(encoder.get(), std::span(pcm).first(frame_input));
            EXPECT_EQ(output.stream, undisturbed(i == 4 ? 0 : 1))
                << "old contents or a later record matter";
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
            put(s.encoder.get(), std::span(pcm).first(1000));
        mpegOutAudioDone(s.encoder.get(), 0);
        EXPECT_EQ(allocations, before);
        EXPECT_GT(s.output.commits, 4);
    }
    const long before = allocations;
    EXPECT_NE(make_encoder({}), nullptr);
    EXPECT_EQ(allocations, before + 1) << "an encoder is one block";
}

TEST(host, gets_the_fastest_kernels) {
    fake_output output;
    const encoder_pointer encoder = make_encoder({});
    ASSERT_EQ(mpegOutAudioInit(encoder.get(), &output), 0);
    const void *held[sizeof(mpeg_a_encoder) / sizeof(void *)];
    std::memcpy(held, encoder.get(), sizeof held);
    EXPECT_GT(std::ranges::count(held, &vela::coding_kernels_of(vela::best_level())), 0);
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
    // 13 / 3 first would lose a tick.
    constexpr std::int64_t cases[][3] = {
        {90000, 90000, 27000000},  {13, 3, 117000000},
        {12345, 0, 12345},         {12345, -5, 12345},
        {-1, 7, -3857142},         {-648000, 0, -648000},
        {1000, 1, 27000000000},    {1ll << 40, 0, 1ll << 40},
        {INT64_MAX, 1, INT64_MAX}, {INT64_MAX, 27000000, INT64_MAX}}; // 2^63 as a double
    for (const auto &[offset, units, start] : cases) {
        const auto frames =
            encode({.pts_offset = offset, .pts_units = static_cast<std::int32_t>(units)}, pcm);
        for (std::size_t f = 0; f < 8; ++f) {
            const auto passed = static_cast<std::int64_t>(f + 1) * ticks;
            EXPECT_EQ(frames.at(f).info.time_stamp,
                      start + std::min(passed, INT64_MAX - std::max<std::int64_t>(start, 0)))
                << offset;
        }
    }
}

// The usual one; rounding upward; subnormal numbers flushed to zero; on x86-64 also with traps.
#if defined(__x86_64__)
constexpr vela::float_registers environments[] = {{0x1F80}, {0x5F80}, {0x9FC0}, {0x1900}};
/// Without the flags that arithmetic leaves behind.
unsigned control_of(const vela::float_registers &registers) {
    return registers.sse & ~0x3Fu;
}
#else
constexpr vela::float_registers environments[] = {{0, 0}, {1 << 22, 0}, {1 << 24, 0}};
std::uint64_t control_of(const vela::float_registers &registers) {
    return registers.control;
}
#endif

TEST(host, keeps_its_floating_point_environment_which_does_not_change_the_stream) {
    // With infinities, and subnormal numbers in between.
    const stream how{2, 0, 4, 0, 44100, 4, 1, 3};
    const auto floats = how.pcm(8 * 1152, waveform::broken);
    const auto expected = encode(how, floats);
    EXPECT_EQ(expected.back().info.time_stamp, 9000000 + 34560000ll * 8 / 49);
    const auto usual = vela::float_registers::read();
    // All the time, or from the callbacks on; the second frame is left out.
    auto wanted = expected;
    wanted.erase(wanted.begin() + 1);
    for (const vela::float_registers &environment : environments) {
        for (const bool from_callbacks : {false, true}) {
            host_run s(how);
            if (from_callbacks) s.output.hook = [=] { environment.write(); };
            (from_callbacks ? usual : environment).write();
            s.run("init");
            put(s.encoder.get(), std::span(floats).first(9216));
            s.encoder->position(2, std::span(floats).first(2 * 9216));
            put(s.encoder.get(), std::span(floats).subspan(2 * 9216));
            s.run("done");
            EXPECT_EQ(control_of(vela::float_registers::read()),
                      control_of(from_callbacks ? usual : environment));
            usual.write();
            EXPECT_TRUE(s.output.frames == wanted) << control_of(environment) << from_callbacks;
        }
    }
}

} // namespace
