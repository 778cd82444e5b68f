// The check at the end: what is wrong with a stream is found, what is not is not, and its figures are another decoder's.
#include "check/stream_check.hpp"
#include "common/failure.hpp"
#include "input/open_pcm.hpp"
#include "parser/frame_header.hpp"
#include "workbench.hpp"

#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <numbers>
#include <sndfile.h>

namespace velaenc_test {
namespace {

class check_test : public workbench {
  protected:
    /// Two channels of noise below some kHz, as most sound is: each sample is a mean over those before it.
    static std::vector<std::int16_t> low_noise(std::size_t instants, int divisor) {
        const auto from = noise(2 * instants, 1);
        std::vector<std::int16_t> means;
        for (std::size_t i = 0; i < from.size(); ++i) {
            int sum = 0;
            for (std::size_t k = i % 2 + (i < 32 ? 0 : i - i % 2 - 30); k <= i; k += 2)
                sum += from[k];
            means.push_back(static_cast<std::int16_t>(std::clamp(sum / divisor, -32768, 32767)));
        }
        return means;
    }

    /// What the check says of a stream of in.wav: its complaint, or nothing.
    std::string complaint(const std::string &stream, const std::string &source = "in.wav",
                          int jobs = 1) {
        const auto header =
            tools::read_header({reinterpret_cast<const std::uint8_t *>(stream.data()), 4}).value();
        const auto input = tools::open_pcm(tools::open_input(path(source)), {});
        const auto samples = source == "less.wav" ? 480000 : input->length().value();
        const auto frame = static_cast<std::uint64_t>(header.samples());
        const auto read = [&stream](std::uint64_t offset, std::span<std::byte> room) {
            return stream.copy(reinterpret_cast<char *>(room.data()), room.size(), offset);
        };
        const tools::finished_stream finished{.read = read,
                                              .begin = 0,
                                              .bytes = stream.size(),
                                              .frames = (samples + frame - 1) / frame,
                                              .layer = header.layer,
                                              .rate = header.rate,
                                              .channels = header.channels(),
                                              .intensity = header.mode == 1};
        try {
            result_ = tools::check_stream(finished, *input, samples, jobs);
        } catch (const tools::failure &error) {
            EXPECT_EQ(error.code(), tools::exit_code::internal);
            return error.what();
        }
        return "";
    }

    tools::check_result result_{};
};

TEST_F(check_test, every_fault_of_a_stream_is_found_and_no_other) {
    const auto both = low_noise(10 * 48000, 8);
    const auto other = noise(20 * 48000, 3);
    put("in.wav", wav(pcm(both), 2, 48000));
    put("other.wav", wav(pcm(other), 2, 48000));
    put("less.wav",
        get("in.wav").substr(0, 44 + 4 * 470000).replace(40, 4, little_endian(4 * 470000, 4)));
    const std::string stream = encoded("in.wav"), silence = encoded("--gain -120 in.wav");
    constexpr std::size_t frame = 672;
    const auto with = [&](std::size_t at, const std::string &bytes) {
        return stream.substr(0, at) + bytes + stream.substr(at + bytes.size());
    };
    // A slow tone with a slower swell: a few samples late it is nearly the same.
    std::vector<std::int16_t> tone(20);
    for (int i = 0; i < 5 * 48000; ++i)
        tone.push_back(static_cast<std::int16_t>(
            20000 * std::sin(2 * std::numbers::pi * 200 * i / 48000) * std::sin(1e-9 * i * i)));
    put("late.wav", wav(pcm(std::vector(tone.begin(), tone.end() - 20)), 1, 48000));
    put("tone.wav", wav(pcm(std::vector(tone.begin() + 20, tone.end())), 1, 48000));
    const std::string late = encoded("late.wav --bitrate 192"),
                      soon = encoded("tone.wav --bitrate 192");
    // A second of noise whose coding is heard in the silent ones around it, in one channel after the other.
    std::vector<std::int16_t> burst(2 * 3 * 48000);
    for (std::size_t i = 0; i < 48000; ++i)
        burst[2 * i] = burst[2 * (48000 + i) + 1] = both[i];
    put("burst.wav", wav(pcm(burst), 2, 48000));
    const struct {
        std::string what, stream, words, source = "in.wav";
    } cases[] = {
        {"a burst", encoded("--bitrate 96 burst.wav"), "", "burst.wav"},
        {"a tone", soon, "", "tone.wav"},
        {"a tone too late", late, "lies 20 samples too late", "tone.wav"},
        {"a tone too soon", soon, "lies 20 samples too early", "late.wav"},
        {"whole", stream, ""},
        {"tuned", encoded("--model tuned in.wav"), ""},
        {"joint", encoded("--mode joint --bitrate 64 in.wav"), ""},
        {"mono, layer I", encoded("--layer 1 --bitrate 192 in.wav"), ""},
        {"cut", stream.substr(0, stream.size() - 1), "do not fill its bytes"},
        {"a frame too few", stream.substr(0, 100 * frame) + stream.substr(101 * frame),
         "do not fill its bytes"},
        {"a damaged header", with(100 * frame, std::string(4, '\0')),
         "frame 100, at byte 67200, has no header"},
        {"another rate", with(100 * frame, encoded("other.wav --to-rate 32000").substr(0, 4)),
         "frame 100"},
        {"a frame twice", with(100 * frame, stream.substr(0, 300 * frame)), "not the input's"},
        {"a second of silence", with(200 * frame, silence.substr(200 * frame, 84 * frame)), "from 0:0"},
        {"all silence", silence, "from 0:00 on the decoded sound is not the input's"},
        {"another sound", encoded("other.wav"), "from 0:00 on the decoded sound is not the input's"},
        {"less sound than was promised", stream, "the sound ends at 0:09", "less.wav"},
        {"swapped", encoded("--swap-channels in.wav"), "from 0:00"},
        {"too soon", encoded("--align in.wav"), "lies 481 samples too early"},
    };
    for (const auto &[what, bytes, words, source] : cases) {
        const auto said = complaint(bytes, source);
        if (words.empty())
            EXPECT_EQ(said, "") << what;
        else
            EXPECT_NE(said.find(words), std::string::npos) << what << ": " << said;
    }
}

TEST_F(check_test, figures_are_those_of_another_decoder_whatever_the_number_of_jobs) {
    auto sound = noise(2 * 65 * 48000);
    for (auto &each : sound)
        each = static_cast<std::int16_t>(2 * each);
    put("in.wav", wav(pcm(sound, 4), 2, 48000, 4));
    const auto stream = encoded("in.wav --bitrate 384");
    put("out.mp2", stream);
    EXPECT_EQ(complaint(stream, "in.wav", 1), "");
    const auto one = result_;
    // Of a file that several readers can open at once.
    write("in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, sound, 2);
    EXPECT_EQ(complaint(stream, "in.flac", 3), "");
    ASSERT_EQ(one.count(), 65u);
    for (std::size_t i = 0; i < one.count(); ++i)
        EXPECT_EQ(one.second(i), result_.second(i)) << i;
    // The integer decoder of ffmpeg, which heard() may get, clips.
    const auto bytes = shell("ffmpeg -v error -c:a mp2float -i out.mp2 -f f32le -").out;
    std::vector<float> decoded(bytes.size() / sizeof(float));
    std::memcpy(decoded.data(), bytes.data(), bytes.size());
    const auto overs = std::ranges::count_if(decoded, [](float each) { return std::abs(each) > 1; });
    // The two decoders round a few samples to another side.
    EXPECT_GT(overs, 1000);
    EXPECT_NEAR(static_cast<double>(one.overs.samples), static_cast<double>(overs), 3);
    EXPECT_EQ(result_.overs.samples, one.overs.samples);
    double signal = 0, noise_sum = 0;
    const std::size_t from = 40 * 96000;
    for (std::size_t i = from; i < from + 96000; ++i) {
        const double x = sound[i] / 32768.0, y = decoded[i + std::size_t{2 * 481}];
        signal += x * x;
        noise_sum += (x - y) * (x - y);
    }
    EXPECT_NEAR(one.second(40).value(), 10 * std::log10(signal / noise_sum), 0.01);
}

TEST_F(check_test, a_stream_that_fails_gets_no_name_and_a_report_has_the_figures) {
    put("in.wav", wav(pcm(noise(2 * 48000 * 2)), 2, 48000));
    run("velaenc --check in.wav out.mp2", 0,
        "note: checked: libmpg123 decodes every frame, signal-to-noise ratio ");
    run("velaenc --check --preset dvd --mode joint in.wav out.wav --gain 6", 0,
        "players will clip them, unless --gain ");
    run("cat in.wav | velaenc --check - piped.mp2 && cmp piped.mp2 out.mp2", 0, "note: checked");
    const std::string corrupt =
        "FAULT_CALL=corrupt FAULT_AT=1 LD_PRELOAD=" VELAENC_FAULT_SHIM " velaenc ";
    expect_failure("rm out.* piped.*; " + corrupt + "--check in.wav new.mp2", 5,
                   "the stream gets no name");
    expect_failure("FAULT_CALL=readback FAULT_AT=1 FAULT_ERRNO=5 LD_PRELOAD=" VELAENC_FAULT_SHIM
                   " velaenc --check in.wav new.mp2",
                   3, "cannot read new.mp2 back");
    expect_failure("cat in.wav | TMPDIR=/nonexistent velaenc --check - new.mp2", 3, "set TMPDIR");
    expect_failure("velaenc --check in.wav - | cat", 1, "name a file");
    put("low.wav", wav(pcm(low_noise(2 * 48000, 5)), 2, 48000));
    run("velaenc --check --output-dir out low.wav --gain 1 --report report", 0, "1 file: 1 encoded");
    const auto line = nlohmann::json::parse(get("report"));
    const auto &check = line["check"];
    EXPECT_EQ(check["snr_db_of_seconds"].size(), 2u);
    EXPECT_GE(check["snr_db"], check["least_snr_db"]);
    EXPECT_EQ(check["least_snr_db"],
              check["snr_db_of_seconds"][check["least_snr_second"].get<std::size_t>()]);
    EXPECT_GT(check["clipped_samples"], 0);
    const double softer = 1 - check["too_loud_by_db"].get<double>();
    run("velaenc --check --output-dir out2 low.wav --report softer --gain "
        + std::to_string(softer - 0.1));
    EXPECT_EQ(nlohmann::json::parse(get("softer"))["check"]["clipped_samples"], 0);
    run("velaenc --check --output-dir out3 low.wav --loudness -23 --report at_goal");
    const double at_goal = nlohmann::json::parse(get("at_goal"))["check"]["snr_db"];
    EXPECT_NEAR(at_goal, check["snr_db"].get<double>(), 1); // the input is compared at the same gain
    const std::string bounded = "velaenc --check low.wav o.mp2 --loudness 0 --true-peak ",
                      advice = "clip them, unless --true-peak ";
    const std::string said = run(bounded + "0", 0, advice).err;
    const auto bound = said.find(advice) + advice.size();
    EXPECT_EQ(run(bounded + said.substr(bound, said.find(' ', bound) - bound)).err.find("clip them"),
              std::string::npos)
        << said;
    run(corrupt + "-j 1 --check --output-dir failed in.wav --report failed.jsonl", 6, "1 failed");
    EXPECT_EQ(shell("ls -A failed").out, "");
    EXPECT_EQ(nlohmann::json::parse(get("failed.jsonl"))["status"], "failed");
}

} // namespace
} // namespace velaenc_test
