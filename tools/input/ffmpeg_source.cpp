#include "input/ffmpeg_source.hpp"

#include "common/failure.hpp"
#include "input/open_pcm.hpp"

#include <array>
#include <regex>

namespace tools {
namespace {

/// The file is opened by its descriptor, so no name can be taken for an option or a protocol; what is in it
/// may name other files at most, and nothing on a network.
std::array<std::string, 17> command(int stream) {
    return {"ffmpeg",
            "-nostdin",
            "-hide_banner",
            "-nostats",
            "-v",
            "error",
            "-protocol_whitelist",
            "file",
            "-i",
            std::string("file:") + child_process::handed_file,
            "-map",
            "0:a:" + std::to_string(stream - 1),
            "-c:a",
            "pcm_f32le",
            "-f",
            "wav",
            "-"};
}

/// What it says behind the reason where a stream is not there.
constexpr const char *advice_on_maps = "To ignore this, add a trailing '?' to the map.";

} // namespace

struct ffmpeg_source::decoder {
    input_file input;
    length_rule rule;
    child_process process;

    decoder(input_file from, int stream, length_rule how)
        : input(std::move(from)), rule(how), process(command(stream), input.handle.get()) {}

    /// What it has complained of last, with the name of the file as the user knows it.
    std::string complaint() const {
        std::string words = process.last_words(advice_on_maps);
        const std::string own = std::string("file:") + child_process::handed_file;
        for (auto at = words.find(own); at != std::string::npos; at = words.find(own, at))
            words.replace(at, own.size(), input.name);
        return std::regex_replace(words, std::regex(" @ 0x[0-9a-f]+"), ""); // addresses help nobody
    }

    void finish() {
        const int status = process.wait();
        const std::string words = complaint();
        if (status != 0 || !words.empty())
            report_incomplete(
                input,
                "cannot be decoded to its end: ffmpeg "
                    + (words.empty() ? "ended with " + std::to_string(status) : "says '" + words + "'"),
                rule);
    }
};

std::unique_ptr<ffmpeg_source> ffmpeg_source::open(input_file input, int stream, length_rule rule) {
    auto from = std::make_unique<decoder>(std::move(input), stream, rule);
    input_file pipe{from->process.take_output(), from->input.name, {}, from->input.on_note};
    auto samples = open_streamed_wav(std::move(pipe));
    if (!samples) {
        from->process.wait();
        throw failure(exit_code::input, "ffmpeg says '" + from->complaint() + "'");
    }
    return std::unique_ptr<ffmpeg_source>(new ffmpeg_source(std::move(from), std::move(samples)));
}

ffmpeg_source::ffmpeg_source(std::unique_ptr<decoder> from, std::unique_ptr<pcm_source> samples)
    : source_filter(std::move(samples)), decoder_(std::move(from)) {
}

ffmpeg_source::~ffmpeg_source() = default;

std::span<const std::byte> ffmpeg_source::next_block() {
    const auto block = source().next_block();
    if (block.empty()) decoder_->finish();
    return block;
}

} // namespace tools
