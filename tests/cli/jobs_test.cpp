// Several threads: whatever their number and the segments, the stream and the list are those of one.
#include "common/failure.hpp"
#include "host/encoding.hpp"
#include "host/sanitizer.hpp"
#include "jobs/encode_loop.hpp"
#include "jobs/parallel_loop.hpp"
#include "jobs/segment_crew.hpp"
#include "workbench.hpp"

#include <algorithm>

namespace velaenc_test {
namespace {

/// PCM from memory in blocks of a given length, which lets others wait every now and then.
class memory_source final : public tools::pcm_source {
  public:
    memory_source(const mp1a_test::stream &how, const std::vector<std::uint8_t> &pcm,
                  std::size_t block_instants, bool endless = false)
        : shape_{how.rate, how.channels(), static_cast<tools::sample_format>(how.width)},
          pcm_(std::as_bytes(std::span(pcm))), block_(block_instants * shape_.instant_bytes()),
          endless_(endless) {}

    const tools::pcm_shape &shape() const noexcept override { return shape_; }
    std::optional<std::uint64_t> length() const noexcept override {
        if (seeks_ == seeks::nowhere) return std::nullopt;
        return (pcm_.size() + (seeks_ == seeks::beyond_the_end ? block_ : 0)) / shape_.instant_bytes();
    }
    bool seek(std::uint64_t sample) override {
        const bool late = seeks_ == seeks::late_from_half_on && sample > *length() / 2;
        fails_ = seeks_ == seeks::failing_from_half_on && sample > *length() / 2;
        at_ = std::min((sample + (late ? 1 : 0)) * shape_.instant_bytes(), pcm_.size());
        return seeks_ != seeks::nowhere;
    }
    std::unique_ptr<pcm_source> another() const override {
        return seeks_ == seeks::nowhere ? nullptr : std::make_unique<memory_source>(*this);
    }
    std::span<const std::byte> next_block() override {
        if (fails_) throw tools::failure(tools::exit_code::input, "a damaged block");
        const auto block = pcm_.subspan(at_, std::min(block_, pcm_.size() - at_));
        at_ = endless_ ? 0 : at_ + block.size();
        return block;
    }
    /// How it looks to those who read in several places.
    enum class seeks { nowhere, exactly, late_from_half_on, failing_from_half_on, beyond_the_end };
    memory_source that_seeks(seeks how) const {
        memory_source result = *this;
        result.seeks_ = how;
        return result;
    }
    bool ready_before(std::chrono::steady_clock::time_point) const override {
        return endless_ || ++asked_ % 7 != 0;
    }

  private:
    tools::pcm_shape shape_;
    std::span<const std::byte> pcm_;
    std::size_t block_, at_ = 0;
    bool endless_, fails_ = false;
    seeks seeks_ = seeks::nowhere;
    mutable unsigned asked_ = 0;
};

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
        const tools::output_rules rules{.sync = false}; // thousands of files
        tools::output_file stream(path("stream"), {}, rules), list(path("list"), {}, rules);
        tools::timestamp_list stamps(list, 12345);
        tools::frame_writer writer(stream, &stamps);
        tools::progress hidden(how.rate, std::nullopt, false);
        auto settings = how.settings();
        settings.pts_offset = 12345;
        const auto done = how_to_divide
                              ? encode_in_parallel(source, settings, writer, hidden, *how_to_divide)
                              : tools::encode(source, settings, writer, hidden, false);
        stamps.flush();
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
    for (const auto seeks : {late_from_half_on, failing_from_half_on, beyond_the_end})
        for (const std::size_t segment_frames : {6u, 16u})
            EXPECT_TRUE(encode(how, source.that_seeks(seeks), tools::division{3, segment_frames})
                        == expected);
}

TEST_F(jobs_test, a_failed_output_ends_the_reading_a_few_segments_on) {
    const mp1a_test::stream how;
    const std::vector<std::uint8_t> pcm(4 * 1152);
    memory_source endless(how, pcm, 1152, true);
    tools::output_file full("/dev/full", {});
    tools::frame_writer writer(full, nullptr);
    tools::progress hidden(how.rate, std::nullopt, false);
    const auto samples = encode_in_parallel(endless, how.settings(), writer, hidden, {3, 8}).samples;
    EXPECT_LE(samples, (2 * 3 + 1) * 8 * 1152u);
    EXPECT_THROW(full.check(), tools::failure);
}

TEST_F(jobs_test, what_ends_a_worker_reaches_the_caller) {
    const mp1a_test::stream how;
    tools::segment too_long(1), other(1);
    too_long.pcm.resize(8 * 4 * 1152);
    other.pcm.resize(4 * 1152);
    const memory_source unused(how, {}, 1152);
    tools::segment_crew crew(how.settings(), unused, 2, 1);
    crew.submit(too_long);
    crew.submit(other); // starts the worker, which takes the first one
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_THROW(crew.finish(too_long), std::logic_error);
}

TEST_F(jobs_test, files_and_pipes_of_many_segments_are_the_same_with_any_number_of_jobs) {
    const auto samples = noise(2 * 480000);
    put("16.wav", wav(pcm(samples), 2, 48000));
    put("24.wav", wav(pcm(samples, 3), 2, 44100, 3));
    put("raw", pcm(samples, 4));
    put("cut.wav", get("16.wav").substr(0, 1500000));
    const struct {
        std::string before, arguments;
    } cases[] = {
        {"", "16.wav"},
        {"", "16.wav --mode mono"},
        // No room for another thread's stack; sanitizers need theirs where it would be.
        {HAS_OWN_MALLOC ? "" : "ulimit -s $((1 << 38)); ", "16.wav"},
        {"", "24.wav --layer 1 --mode joint"},
        {"", "- --raw --rate 32000 --channels 1 --format f32 --mode dual < raw"},
        {"cat raw | ", "- --raw --rate 48000 --channels 2 --format f32"},
        {"(head -c 700001; sleep 0.1; cat) < 16.wav | ", "-"},
        {"cat cut.wav | ", "-"},
        {"", "24.wav --preset dvd --mode mono"},
        {"(head -c 700001; sleep 0.1; cat) < 16.wav | ", "- --to-rate 44100"},
        {"", "- --raw --rate 22051 --channels 1 --format f32 < raw"},
    };
    for (const auto &each : cases) {
        const auto with = [&](const std::string &jobs) {
            const auto result = run(each.before + "velaenc --timestamps list.csv --quiet " + jobs + " "
                                    + each.arguments + " -");
            return result.out + result.err + get("list.csv");
        };
        const auto expected = with("-j 1");
        EXPECT_GT(expected.size(), 100000u) << each.arguments;
        for (const std::string jobs : {"-j 2", "--jobs 5", ""})
            EXPECT_TRUE(with(jobs) == expected) << each.before << each.arguments << ' ' << jobs;
    }
}

} // namespace
} // namespace velaenc_test
