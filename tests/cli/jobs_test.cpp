// Several threads: whatever their number and the segments, the stream and the list are those of one.
#include "jobs/encode_loop.hpp"
#include "jobs/parallel_loop.hpp"
#include "memory_source.hpp"
#include "workbench.hpp"

#include <algorithm>

namespace velaenc_test {
namespace {

struct result {
    std::string stream, list;
    std::uint64_t samples;
    bool operator==(const result &) const = default;
};

class jobs_test : public workbench {
  protected:
    /// @param how_to_divide  none: the plain loop
    result encode(const mp1a_test::stream &how, memory_source source,
                  const std::optional<tools::division> &how_to_divide) const {
        const tools::output_rules rules{
            true, false, false, {}, {}}; // no waiting for thousands of files
        tools::output_file stream(path("stream"), {}, rules), list(path("list"), {}, rules);
        tools::timestamp_list stamps(list, 12345);
        tools::frame_writer writer(stream, &stamps, 0);
        struct : tools::progress_listener {
            void update(std::uint64_t samples) override { last = samples; }
            std::uint64_t last = 0;
        } shown;
        auto settings = how.settings();
        settings.pts_offset = 12345;
        const auto done = how_to_divide
                              ? encode_in_parallel(source, settings, writer, shown, *how_to_divide)
                              : tools::encode(source, settings, writer, shown);
        EXPECT_EQ(shown.last, done.samples);
        stream.close();
        list.close();
        stream.publish();
        list.publish();
        return {get("stream"), get("list"), done.samples};
    }
};

TEST_F(jobs_test, every_setting_in_segments_of_any_length_is_the_stream_of_one_thread) {
    constexpr int rates[] = {44100, 48000, 32000};
    constexpr std::size_t segments[] = {1, 2, 5, 6, 7, 16, 100}, blocks[] = {37, 1000, 16384};
    for (int k = 0; k < 2 * 4 * 3 * 3; ++k) {
        const mp1a_test::stream how{.layer = 1 + k % 2,
                                    .mode = k / 2 % 4,
                                    .bitrate = 6,
                                    .crc = k / 3 % 2,
                                    .rate = rates[k / 8 % 3],
                                    .width = 2 + k / 24,
                                    .model = k / 4 % 2 * MPEG_A_MODEL_TUNED};
        // The input ends just before, at and just behind the end of a frame, and so of some segments.
        const int instants = (8 + k % 11) * how.frame_samples() + k % 3 - 1;
        // The last one is for floats only.
        const auto pcm = how.pcm(instants, mp1a_test::all_waveforms[k % (how.width == 4 ? 7 : 6)]);
        const auto expected = encode(how, {how, pcm, 5000}, std::nullopt);
        EXPECT_EQ(frames_of(expected.stream).size(),
                  static_cast<std::size_t>(8 + k % 11 + (k % 3 == 2)))
            << k;
        for (int i = 0; i < 4; ++i) {
            const tools::division divided{1 + i, segments[(k + 2 * i) % 7]};
            const memory_source source(how, pcm, blocks[(k + i) % 3]);
            for (const auto seeks : {memory_source::seeks::nowhere, memory_source::seeks::exactly})
                EXPECT_TRUE(encode(how, source.that_seeks(seeks), divided) == expected)
                    << "case " << k << ", " << divided.jobs << " jobs, " << divided.segment_frames;
        }
    }
}

TEST_F(jobs_test, a_source_that_seeks_to_other_samples_or_promises_too_many_is_read_from_its_start) {
    const mp1a_test::stream how;
    const auto pcm = how.pcm(100 * 1152 + 3);
    const memory_source source(how, pcm, 1000);
    const auto expected = encode(how, source, std::nullopt);
    using enum memory_source::seeks;
    for (const auto seeks : {late, failing, beyond_the_end})
        for (const std::size_t segment_frames : {6u, 16u})
            EXPECT_TRUE(encode(how, source.that_seeks(seeks), tools::division{3, segment_frames})
                        == expected);
    // Where other threads have no memory the stream is whole or that is said.
    try {
        EXPECT_TRUE(encode(how, source.that_seeks(breaks), tools::division{3, 6}) == expected);
    } catch (const std::bad_alloc &) {
    }
}

} // namespace
} // namespace velaenc_test
