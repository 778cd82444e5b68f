// Life cycle, and hosts that refuse, truncate and fail.
#include "host/allocation_counter.hpp"
#include "host/encoding.hpp"
#include "host/fake_host.hpp"
#include "host/signals.hpp"
#include "oracle/frame_parser.hpp"

#include <cstdlib>
#include <gtest/gtest.h>
#include <xmmintrin.h>

namespace {

using namespace mp1a_test;
using strings = std::vector<std::string>;

constexpr char refused_message[] = "A002:Could not write to audio file";

/// Layer II stereo at 224 kbit/s and 48 kHz: frames of 672 bytes from 4608 bytes of 16-bit input.
constexpr std::uint32_t frame_input = 4608, frame_bytes = 672, ticks = 648000;

class host : public testing::Test {
  protected:
    const std::vector<std::uint8_t> pcm = pcm_bytes(make_signal(waveform::noise, 8 * 2304), 2);

    /// With infinities, and subnormal numbers in between.
    std::vector<std::uint8_t> floats = pcm_bytes(make_signal(waveform::broken, 8 * 2304), 4);

    encoder_pointer make(const stream &how = {}) {
        const mpeg_a_settings settings = how.settings();
        return {mpegOutAudioNew(fake_host::lookup, &settings, 0, how.width, how.rate),
                mpegOutAudioFree};
    }
    int put(const encoder_pointer &encoder, std::uint32_t first, std::uint32_t size) {
        return mpegOutAudioPutBytes(encoder.get(), pcm.data() + first, size);
    }
    std::vector<std::uint8_t> undisturbed(std::size_t frames) {
        std::vector<std::uint8_t> bytes;
        for (const auto &frame : encode({}, std::span(pcm).first(frames * frame_input)))
            bytes.insert(bytes.end(), frame.bytes.begin(), frame.bytes.end());
        return bytes;
    }
};

TEST_F(host, sees_exactly_the_documented_calls) {
    fake_host::reset();
    const auto encoder = make();
    fake_output output;
    const strings init{"chunk_size 4096", "request 4096"}, frame{"header 0", "commit 672", "frame 0"};
    const auto expect_calls = [&](const std::vector<strings> &pieces) {
        strings all;
        for (const strings &piece : pieces)
            all.insert(all.end(), piece.begin(), piece.end());
        EXPECT_EQ(output.calls, all);
    };
    ASSERT_EQ(mpegOutAudioInit(encoder.get(), &output), 0);
    expect_calls({init});
    EXPECT_EQ(put(encoder, 0, frame_input - 2), 0);
    expect_calls({init});
    EXPECT_EQ(put(encoder, frame_input - 2, 2 + frame_input), 0);
    expect_calls({init, frame, init, frame});
    EXPECT_EQ(put(encoder, 0, 0), 0);
    EXPECT_EQ(mpegOutAudioDone(encoder.get(), 0), 0);
    expect_calls({init, frame, init, frame});
    EXPECT_EQ(output.frames[0].info.time_stamp, ticks);
    EXPECT_EQ(output.frames[1].info.time_stamp, 2 * ticks);
    EXPECT_EQ(output.frames[1].info.unused, 0u);
    EXPECT_EQ(fake_host::reset().messages, strings{});
}

TEST_F(host, gets_the_pending_samples_once_on_flush_and_on_done_but_not_on_abort) {
    const auto encoder = make();
    for (const int abort : {0, 1}) {
        fake_output output;
        ASSERT_EQ(mpegOutAudioInit(encoder.get(), &output), 0);
        put(encoder, 0, 4000);
        EXPECT_EQ(mpegOutAudioPutBytes(encoder.get(), nullptr, 7), 0);
        EXPECT_EQ(mpegOutAudioPutBytes(encoder.get(), nullptr, 0), 0);
        EXPECT_EQ(output.frames.size(), 1u);
        put(encoder, 0, 4000);
        EXPECT_EQ(mpegOutAudioDone(encoder.get(), abort), 0);
        EXPECT_EQ(output.frames.size(), abort ? 1u : 2u);
        const auto calls = output.calls;
        EXPECT_EQ(mpegOutAudioDone(encoder.get(), 0), 0);
        EXPECT_EQ(put(encoder, 0, frame_input), 2);
        EXPECT_EQ(mpegOutAudioPutBytes(encoder.get(), nullptr, 0), 2);
        EXPECT_EQ(output.calls, calls) << "a call after Done reached the output";
    }
}

TEST_F(host, may_make_calls_out_of_order_or_without_objects) {
    fake_host &seen = fake_host::reset();
    seen.has_malloc = seen.has_free = true; // memory that is not cleared
    const auto encoder = make();
    EXPECT_EQ(put(encoder, 0, frame_input), 2);
    EXPECT_EQ(mpegOutAudioDone(encoder.get(), 0), 0);
    EXPECT_EQ(mpegOutAudioInit(encoder.get(), nullptr), 2);
    EXPECT_EQ(put(encoder, 0, frame_input), 2);
    fake_output output;
    EXPECT_EQ(mpegOutAudioInit(encoder.get(), &output), 0);
    EXPECT_EQ(put(encoder, 0, frame_input), 0);
    EXPECT_EQ(mpegOutAudioInit(encoder.get(), nullptr), 2);
    EXPECT_EQ(put(encoder, 0, frame_input), 2);
    EXPECT_EQ(output.frames.size(), 1u);
    EXPECT_EQ(mpegOutAudioInit(nullptr, &output), 2);
    EXPECT_EQ(mpegOutAudioPutBytes(nullptr, pcm.data(), 4), 2);
    EXPECT_EQ(mpegOutAudioDone(nullptr, 0), 0);
    mpegOutAudioFree(nullptr);
    EXPECT_EQ(seen.messages, strings{});
}

TEST_F(host, initialises_again_and_gets_a_fresh_stream) {
    const auto encoder = make();
    fake_output first, second;
    mpegOutAudioInit(encoder.get(), &first);
    put(encoder, 0, 3 * frame_input + 1000);
    const auto calls = first.calls;
    ASSERT_EQ(mpegOutAudioInit(encoder.get(), &second), 0);
    EXPECT_EQ(first.calls, calls) << "the block held before is given up without a call";
    put(encoder, 0, 2 * frame_input);
    EXPECT_EQ(second.stream, undisturbed(2)) << "history or pending samples survived";
    EXPECT_EQ(second.frames.at(1).info.time_stamp, 2 * ticks);
}

TEST_F(host, refusing_a_block_at_any_position_ends_the_stream_there) {
    for (int position = 0; position < 4; ++position) {
        fake_host &seen = fake_host::reset();
        const auto encoder = make();
        fake_output output;
        output.refused_request = position;
        testing::internal::CaptureStderr();
        ASSERT_EQ(mpegOutAudioInit(encoder.get(), &output), 0);
        // Half a frame beyond what fails: it must not count towards the next call's frame.
        EXPECT_EQ(put(encoder, 0, 4 * frame_input + frame_input / 2), 2);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "can't request space (4096 bytes) in output bufstream\n");
        EXPECT_EQ(output.stream, undisturbed(static_cast<std::size_t>(position)));
        EXPECT_EQ(seen.messages, strings{refused_message});
        const auto calls = output.calls;
        EXPECT_EQ(put(encoder, 0, frame_input / 2), 0);
        EXPECT_EQ(put(encoder, 0, frame_input / 2), 2);
        EXPECT_EQ(put(encoder, 0, 100), 0);
        EXPECT_EQ(mpegOutAudioDone(encoder.get(), 0), 0);
        EXPECT_EQ(seen.messages, (strings{refused_message, refused_message, refused_message}));
        EXPECT_EQ(output.calls, calls) << "something reached an output that had failed";

        fake_output good;
        EXPECT_EQ(mpegOutAudioInit(encoder.get(), &good), 0);
        EXPECT_EQ(put(encoder, 0, frame_input), 0);
        EXPECT_EQ(good.stream, undisturbed(1));
    }
}

TEST_F(host, accepting_too_little_still_gets_that_frames_report_and_nothing_more) {
    for (int position = 0; position < 3; ++position) {
        const auto encoder = make();
        fake_output output;
        output.short_commit = position;
        mpegOutAudioInit(encoder.get(), &output);
        EXPECT_EQ(put(encoder, 0, 4 * frame_input), 2);
        EXPECT_EQ(output.frames.size(), static_cast<std::size_t>(position + 1));
        EXPECT_EQ(output.calls.back(), "frame 0");
        EXPECT_EQ(output.commits, position + 1);
    }
}

TEST_F(host, lending_small_blocks_gets_the_same_bytes_in_more_commits) {
    const struct {
        std::uint32_t chunk;
        int commits; ///< of three frames; 0: the stream fails
    } cases[] = {{4096, 3}, {1728, 3}, {1040, 6}, {1025, 6}, {673, 6},
                 {672, 7},  {671, 0},  {4, 0},    {0, 0}};
    for (const auto &c : cases) {
        const auto encoder = make();
        fake_output output(c.chunk);
        ASSERT_EQ(mpegOutAudioInit(encoder.get(), &output), 0);
        testing::internal::CaptureStderr();
        EXPECT_EQ(put(encoder, 0, 3 * frame_input), c.commits == 0 ? 2 : 0) << c.chunk;
        testing::internal::GetCapturedStderr();
        EXPECT_FALSE(output.overrun) << c.chunk;
        const std::size_t frames = c.commits == 0 ? 0 : 3;
        EXPECT_EQ(output.stream, undisturbed(frames)) << c.chunk;
        EXPECT_EQ(output.frames.size(), frames) << c.chunk;
        // The first block of 672 bytes would be filled to its last byte, so it goes back empty.
        EXPECT_TRUE(frames == 0 || output.commits == c.commits) << output.commits;
        for (const auto &frame : output.frames)
            EXPECT_EQ(frame.info.length, frame_bytes);
    }
}

TEST_F(host, memory_comes_once_from_its_pair_or_from_the_process) {
    const struct {
        bool has_malloc, has_free, fails;
        int mallocs, frees;
    } cases[] = {{true, true, false, 1, 1},
                 {true, true, true, 1, 0},
                 {true, false, false, 0, 0},
                 {false, true, false, 0, 0},
                 {false, false, false, 0, 0}};
    for (const auto &c : cases) {
        fake_host &seen = fake_host::reset();
        seen.has_malloc = c.has_malloc;
        seen.has_free = c.has_free;
        seen.malloc_fails = c.fails;
        auto encoder = make();
        EXPECT_EQ(encoder == nullptr, c.fails);
        EXPECT_EQ(seen.names,
                  c.fails ? (strings{"err_printf", "malloc", "free"})
                          : (strings{"err_printf", "malloc", "free", "err_printf", "inf_printf"}));
        if (!c.fails) {
            fake_output output;
            mpegOutAudioInit(encoder.get(), &output);
            put(encoder, 0, frame_input);
            EXPECT_EQ(output.stream, undisturbed(1)) << "the block's old contents matter";
        }
        encoder.reset();
        EXPECT_EQ(seen.mallocs, c.mallocs);
        EXPECT_EQ(seen.frees, c.frees);
        EXPECT_EQ(seen.messages, strings{});
    }
}

TEST_F(host, pays_for_no_allocation_while_encoding) {
    if (allocations() < 0) GTEST_SKIP() << "this build's malloc is a sanitizer's";
    for (int i = 0; i < 8; ++i) {
        const auto encoder =
            make({.layer = 1 + i % 2, .mode = i / 2, .bitrate = 6, .crc = 1, .rate = 44100});
        fake_output output;
        output.recording = false;
        const long before = allocations();
        ASSERT_EQ(mpegOutAudioInit(encoder.get(), &output), 0);
        for (std::uint32_t at = 0; at < pcm.size(); at += 1000)
            put(encoder, at, std::min(1000u, static_cast<std::uint32_t>(pcm.size()) - at));
        mpegOutAudioDone(encoder.get(), 0);
        EXPECT_EQ(allocations(), before);
        EXPECT_GT(output.commits, 4);
    }
    const long before = allocations();
    EXPECT_NE(make_encoder({}), nullptr);
    EXPECT_EQ(allocations(), before + 1) << "an encoder is one block";
}

TEST_F(host, only_the_generic_rules_keep_it_from_an_encoder) {
    fake_host &seen = fake_host::reset();
    EXPECT_EQ(make({.rate = 0}), nullptr);
    EXPECT_EQ(make({.bitrate = 3}), nullptr);
    EXPECT_EQ(mpegOutAudioNew(fake_host::lookup, nullptr, 0, 2, 48000), nullptr);
    EXPECT_EQ(seen.messages,
              (strings{"A021:Invalid audio sample rate (0), should be 32000, 44100 or 48000",
                       "A025:Invalid audio bitrate code (3), range is 4 .. 14",
                       "A031:Invalid mpeg_a_settings parameter"}));
    EXPECT_EQ(mpegOutAudioNew(nullptr, nullptr, 0, 2, 48000), nullptr);
    EXPECT_NE(make({.rate = 32000}), nullptr);
}

TEST_F(host, chooses_the_sample_width_by_the_low_three_bits) {
    const auto stream_of = [&](int format) {
        std::vector<std::uint8_t> bytes;
        for (const auto &frame : encode({.width = format}, std::span(pcm).first(3 * frame_input)))
            bytes.insert(bytes.end(), frame.bytes.begin(), frame.bytes.end());
        return bytes;
    };
    const struct {
        int width;
        std::initializer_list<int> formats;
        std::size_t frames;
    } cases[] = {
        {2, {0, 1, 2, 5, 6, 7, 8, 10, -6}, 3}, {3, {3, 11, -5}, 2}, {4, {4, 12, 1 << 20 | 4}, 2}};
    for (const auto &c : cases) {
        EXPECT_EQ(stream_of(c.width).size(), c.frames * frame_bytes);
        for (const int format : c.formats)
            EXPECT_EQ(stream_of(format), stream_of(c.width)) << format;
    }
}

TEST_F(host, starts_its_time_stamps_anywhere) {
    const struct {
        std::int64_t offset;
        std::int32_t units;
        std::int64_t start;
    } cases[] = {{90000, 90000, 27000000}, {12345, 0, 12345},        {12345, -5, 12345},
                 {-1, 7, -3857142},        {1, 7, 3857142},          {-648000, 0, -648000},
                 {1000, 1, 27000000000},   {1ll << 40, 0, 1ll << 40}};
    for (const auto &c : cases) {
        mpeg_a_settings settings = stream{}.settings();
        settings.pts_offset = c.offset;
        settings.pts_units = c.units;
        const encoder_pointer encoder(mpegOutAudioNew(nullptr, &settings, 0, 2, 48000),
                                      mpegOutAudioFree);
        fake_output output;
        mpegOutAudioInit(encoder.get(), &output);
        put(encoder, 0, 2 * frame_input);
        EXPECT_EQ(output.frames.at(0).info.time_stamp, c.start + ticks) << c.offset;
        EXPECT_EQ(output.frames.at(1).info.time_stamp, c.start + 2 * ticks) << c.offset;
    }
}

TEST_F(host, keeps_its_floating_point_environment_which_does_not_change_the_stream) {
    mpeg_a_settings settings = stream{.bitrate = 4, .rate = 44100}.settings();
    settings.pts_offset = 1;
    settings.pts_units = 3;
    const auto run = [&](unsigned environment) {
        const unsigned usual = _mm_getcsr();
        fake_output output;
        _mm_setcsr(environment);
        const encoder_pointer encoder(mpegOutAudioNew(nullptr, &settings, 0, 4, 44100),
                                      mpegOutAudioFree);
        mpegOutAudioInit(encoder.get(), &output);
        mpegOutAudioPutBytes(encoder.get(), floats.data(), static_cast<std::uint32_t>(floats.size()));
        mpegOutAudioDone(encoder.get(), 0);
        EXPECT_EQ(_mm_getcsr(), environment);
        _mm_setcsr(usual);
        EXPECT_EQ(output.frames.back().info.time_stamp, 9000000 + 34560000ll * 8 / 49);
        return output.stream;
    };
    const auto expected = run(0x1F80);
    EXPECT_EQ(run(0x5F80), expected) << "rounding upward";
    EXPECT_EQ(run(0x9FC0), expected) << "subnormal numbers flushed to zero";
    EXPECT_EQ(run(0x1900), expected) << "traps"; // invalid operation, division by zero, overflow
}

} // namespace
