#include "velaenc/sound_plan.hpp"

#include "common/counted.hpp"
#include "common/failure.hpp"
#include "input/channel_matrix.hpp"
#include "input/resampler.hpp"
#include "input/sample_range.hpp"
#include "jobs/progress.hpp"
#include "settings/record.hpp"
#include "settings/rules.hpp"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <span>

namespace tools {
namespace {

/// The input's own rate, else the lowest one above it; from above all of them, the one that divides it.
int stream_rate(const options &wanted, int input_rate) {
    if (wanted.sound.rate) return *wanted.sound.rate;
    const std::vector<int> rates = rates_of_preset(wanted.preset_code());
    for (const int rate : rates)
        if (rate == 44100 && input_rate > 48000 && input_rate % 11025 == 0) return rate;
    for (const int rate : rates)
        if (rate >= input_rate) return rate;
    return rates.back();
}

std::string decibels(double value) {
    return formatted("%+.1f dB", value);
}

std::uint64_t samples_in(std::chrono::nanoseconds time, int rate) {
    constexpr std::uint64_t second = 1'000'000'000;
    const auto ticks = static_cast<std::uint64_t>(time.count());
    const auto hz = static_cast<std::uint64_t>(rate);
    return ticks / second * hz + (ticks % second * hz + second / 2) / second;
}

std::string seconds_text(std::uint64_t samples, int rate) {
    return clock_text(static_cast<double>(samples) / rate, 3);
}

std::unique_ptr<pcm_source> take_part(std::unique_ptr<pcm_source> source, const sound_options &wanted) {
    if (wanted.start == std::chrono::nanoseconds{} && !wanted.duration) return source;
    const int rate = source->shape().rate;
    sample_range::extent part{samples_in(wanted.start, rate)};
    if (wanted.duration) part.count = samples_in(*wanted.duration, rate);
    const std::string text = "the input ends before --start " + seconds_text(part.first, rate);
    const auto length = source->length();
    if (length && part.first >= *length)
        throw failure(exit_code::input, text + "; it has " + seconds_text(*length, rate));
    return std::make_unique<sample_range>(std::move(source), part, text);
}

std::string names_of(const std::vector<speaker> &speakers) {
    std::string names;
    for (const speaker each : speakers) {
        if (!names.empty()) names += ' ';
        names += name_of(each);
    }
    return names;
}

gain_matrix mixdown(const pcm_source &source, std::span<const speaker_factor> own,
                    std::vector<std::string> &notes) {
    const std::string count = std::to_string(source.shape().channels) + " channels";
    auto speakers = source.speakers();
    const bool guessed = speakers.empty();
    if (guessed) speakers = wav_speakers(source.shape().channels);
    auto gains = own.empty() ? bs775_gains(speakers) : own_gains(speakers, own);
    if (speakers.empty() || gains.empty())
        throw failure(exit_code::input,
                      "the input has " + count
                          + (speakers.empty() ? "" : " (" + names_of(speakers) + ")")
                          + ", for which there is no mixdown to stereo; mix it down first");
    const double front = std::ranges::max(gains[0]);
    notes.push_back("mixing " + count + " (" + names_of(speakers)
                    + (guessed ? ", going by their number" : "") + ") down to stereo by "
                    + (own.empty() ? "ITU-R BS.775, the front" : "--downmix, the loudest channel")
                    + " at " + decibels(20 * std::log10(front)));
    double most = 0;
    for (const auto &row : gains)
        most = std::max(most, std::accumulate(row.begin(), row.end(), 0.0));
    if (most > 1.0001)
        notes.back() += ", all at once at " + decibels(20 * std::log10(most)) + ", which may clip";
    return gains;
}

/// Two channels are never mixed, whatever they are.
void note_speakers(const pcm_source &source, std::vector<std::string> &notes) {
    const auto speakers = source.speakers();
    if (source.shape().channels != 2 || speakers.empty() || speakers == wav_speakers(2)) return;
    notes.push_back("the two channels (" + names_of(speakers) + ") become left and right");
}

/// Mixdown, gain and swap are one matrix.
std::unique_ptr<pcm_source> mix(std::unique_ptr<pcm_source> source, const sound_options &wanted,
                                std::vector<std::string> &notes) {
    const int channels = source->shape().channels;
    const bool swaps = wanted.swaps_channels && channels > 1;
    note_speakers(*source, notes);
    if (wanted.swaps_channels && !swaps) notes.emplace_back("one channel: nothing to swap");
    if (channels <= 2 && wanted.gain_db == 0 && !swaps) return source;
    auto gains = channels > 2 ? mixdown(*source, wanted.downmix, notes) : unity_gains(channels);
    if (swaps) {
        notes.emplace_back("left and right are swapped");
        std::swap(gains[0], gains[1]);
    }
    if (wanted.gain_db != 0) notes.push_back("gain " + decibels(wanted.gain_db));
    // As a float it is the same on every machine.
    const auto factor = static_cast<float>(std::pow(10, wanted.gain_db / 20));
    for (auto &row : gains)
        for (double &gain : row)
            gain *= factor;
    return std::make_unique<channel_matrix>(std::move(source), std::move(gains));
}

std::unique_ptr<pcm_source> resample(std::unique_ptr<pcm_source> source, int rate,
                                     std::vector<std::string> &notes) {
    const int from = source->shape().rate;
    if (from == rate) return source;
    if (from < 1)
        throw failure(exit_code::rules, "the input has " + std::to_string(from)
                                            + " Hz, which nothing can be resampled from");
    notes.push_back("resampling " + std::to_string(from) + " Hz to " + std::to_string(rate) + " Hz");
    return std::make_unique<resampler>(std::move(source), rate);
}

std::unique_ptr<pcm_source> set_in_time(std::unique_ptr<pcm_source> source, const sound_options &wanted,
                                        int layer, std::vector<std::string> &notes) {
    if (!wanted.aligns && !wanted.flushes_tail) return source;
    const auto delay = static_cast<std::uint64_t>(decoder_delay(layer));
    const std::string samples = std::to_string(delay) + " samples";
    notes.push_back((wanted.aligns
                         ? "dropping " + samples + " at the start for the decoder's delay and "
                         : std::string())
                    + "appending " + samples + " of silence");
    const sample_range::extent part{wanted.aligns ? delay : 0, std::nullopt, delay};
    const std::string text =
        "the input is shorter than the " + samples + " that --align drops; leave --align out";
    return std::make_unique<sample_range>(std::move(source), part, text);
}

} // namespace

std::unique_ptr<pcm_source> shape_sound(std::unique_ptr<pcm_source> source, const options &wanted,
                                        const mpeg_a_settings &settings,
                                        std::vector<std::string> &notes) {
    const int channels = channels_of(settings);
    const int rate = stream_rate(wanted, source->shape().rate);
    source = mix(take_part(std::move(source), wanted.sound), wanted.sound, notes);
    // The fewer channels, the less there is to resample.
    if (channels < source->shape().channels) source = fit_channels(std::move(source), channels);
    source = resample(std::move(source), rate, notes);
    source = fit_channels(std::move(source), channels);
    return set_in_time(std::move(source), wanted.sound, settings.audio_layer, notes);
}

std::uint64_t samples_before(const options &wanted, int rate) {
    return samples_in(wanted.sound.start, rate);
}

std::string clip_text(const clip_count &clipped) {
    // Rounded up, so that the gain is enough.
    const double excess = std::ceil(200 * std::log10(clipped.peak)) / 10;
    const std::string text =
        counted(clipped.samples, "sample") + (clipped.samples == 1 ? " lies" : " lie");
    if (!std::isfinite(excess))
        return text
               + " beyond full scale, and some are infinite or no numbers; players make noise or"
                 " silence of those";
    return text + " beyond full scale, by up to " + decibels(excess)
           + "; players will clip them, unless --gain lowers all by as much";
}

} // namespace tools
