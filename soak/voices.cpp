#include "voices.hpp"

#include "parser/frame_parser.hpp"
#include "vela_enc_mp1a/encoder.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace soak {
namespace {

/// FNV-1a.
void add(std::uint64_t &digest, std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes)
        digest = (digest ^ byte) * 0x100000001b3;
}

/// By how many ticks stamps at 44.1 kHz may be off: the table of docs/host-guide.md.
std::int64_t promised_drift(double seconds, int layer) {
    constexpr struct {
        double hours;
        std::int64_t ticks[2]; ///< Layer I, Layer II
    } rows[] = {{7, {14, 10}},
                {24, {304, 176}},
                {168, {11676, 4521}},
                {730, {378090, 97656}},
                {8766, {28525351, 2926327}}};
    for (const auto &[hours, ticks] : rows)
        if (seconds <= hours * 3600) return ticks[layer - 1];
    return INT64_MAX; // nothing is promised
}

} // namespace

void fail(const std::string &what) {
    std::fprintf(stderr, "soak: %s\n", what.c_str());
    std::_Exit(1);
}

mpeg_a_settings settings::record() const {
    mpeg_a_settings filled{};
    mpegOutAudioDefaults(&filled, MPEG_A_PRESET_NONE);
    filled.audio_layer = layer;
    filled.audio_mode = mode;
    filled.audio_bitrate = bitrate;
    filled.error_protection = crc;
    filled.audio_model = model;
    return filled;
}

/// Padding repeats every 147 frames of Layer I and 49 of Layer II. Tones that slide, and bursts of noise.
segment::segment(const settings &how) : frames(how.layer == 1 ? 147 * 6 : 49 * 6) {
    std::minstd_rand random(1);
    std::uniform_real_distribution<double> uniform(-1, 1);
    const int samples = frames * how.frame_samples();
    double phase = 0;
    for (int i = 0; i < samples; ++i) {
        const double t = static_cast<double>(i) / how.rate;
        phase += (200 + 3000 * std::abs(std::sin(t))) / how.rate;
        for (int c = 0; c < how.channels(); ++c) {
            const double value = 0.4 * std::sin(2 * 3.14159265358979 * phase + c)
                                 + 0.4 * std::exp(-9 * std::fmod(t + 0.2 * c, 0.7)) * uniform(random);
            std::int64_t bits = std::lround(value * (how.width == 2 ? 32767 : 8388607));
            if (how.width == 4) {
                const auto sample = static_cast<float>(value);
                std::uint32_t word;
                std::memcpy(&word, &sample, sizeof word);
                bits = word;
            }
            for (int byte = 0; byte < how.width; ++byte)
                pcm.push_back(static_cast<std::uint8_t>(bits >> 8 * byte));
        }
    }
}

void judge::take(std::span<const std::uint8_t> frame, std::int64_t ticks) {
    judge_bytes(frame);
    // n * samples * 27000000 / rate, without an overflow before the sun goes out.
    const std::int64_t samples = frames_ * how_.frame_samples();
    const std::int64_t exact =
        samples / how_.rate * 27000000 + samples % how_.rate * 27000000 / how_.rate;
    const std::int64_t drift = how_.rate == 44100 ? promised_drift(seconds(), how_.layer) : 0;
    if (std::abs(ticks - exact) > drift)
        fail_at("stamp " + std::to_string(ticks) + " and not " + std::to_string(exact));
}

void judge::take_heard(std::span<const std::uint8_t> frame, std::uint64_t nanoseconds, int delay) {
    // A decoder brings a sample out of every frame, even where its delay is longer than the first ones.
    const std::int64_t sample = std::max(frames_ * how_.frame_samples() - delay, frames_);
    judge_bytes(frame);
    const std::int64_t exact =
        sample / how_.rate * 1000000000 + sample % how_.rate * 1000000000 / how_.rate;
    if (std::abs(static_cast<std::int64_t>(nanoseconds) - exact) > 1)
        fail_at("heard at " + std::to_string(nanoseconds) + " ns and not at " + std::to_string(exact));
}

void judge::judge_bytes(std::span<const std::uint8_t> frame) {
    const tools::parsed_frame parsed = tools::parse_frame(frame);
    if (!parsed.broken_rule().empty()) fail_at(std::string(parsed.broken_rule()));
    if (parsed.layer != how_.layer || parsed.rate != how_.rate || parsed.crc != how_.crc
        || parsed.channels() != how_.channels())
        fail_at("a header of another stream");
    ++frames_;
    bytes_ += static_cast<std::int64_t>(frame.size());
    // On average a frame has exactly its share of the bitrate; padding is at most a slot early or late.
    const std::int64_t slots = bytes_ / parsed.slot_bytes();
    const std::int64_t share =
        frames_ * parsed.whole_slots() + frames_ * parsed.slot_rest() / how_.rate;
    if (std::abs(slots - share) > 1)
        fail_at(std::to_string(slots) + " slots and not " + std::to_string(share));
    add(digest_, frame);
    padding_ = (padding_ ^ static_cast<std::uint64_t>(parsed.padding)) * 0x100000001b3 + 1;
    if (frames_ % frames_in_segment_ == 0) end_segment();
}

/// The first segment of a stream has nothing before it, all others have the segment itself.
void judge::end_segment() {
    if (frames_ > frames_in_segment_ && known_.try_emplace(padding_, digest_).first->second != digest_)
        fail_at("the segment has other bytes than before");
    digest_ = padding_ = 0;
}

void judge::fail_at(const std::string &what) const {
    fail(std::string(how_.name) + ", frame " + std::to_string(frames_) + ": " + what);
}

void voice::in_pieces(const std::function<void(std::span<const std::uint8_t>)> &take) {
    const auto sample =
        static_cast<std::size_t>(how_.width) * static_cast<std::size_t>(how_.channels());
    for (std::span<const std::uint8_t> rest = segment_.pcm; !rest.empty();) {
        const std::size_t most = random_() % 8 == 0 ? 40000 : 3000;
        const auto piece = rest.first(std::min(rest.size(), sample * (1 + random_() % most)));
        take(piece);
        rest = rest.subspan(piece.size());
    }
}

} // namespace soak
