#include "velainfo/comparison.hpp"

#include "settings/record.hpp"
#include "velainfo/alignment.hpp"
#include "velainfo/decibels.hpp"
#include "velainfo/decoded_source.hpp"
#include "velainfo/frame_decoder.hpp"
#include "velainfo/source_analysis.hpp"
#include "velainfo/source_reader.hpp"

#include <algorithm>
#include <cmath>
#include <deque>
#include <memory>

namespace tools {
namespace {

/// Decoded sound that the source is searched for, and how far either way.
constexpr std::int64_t searched_window = 1 << 18, searched_range = 1 << 19;
/// The same after a jump, in frames and samples.
constexpr std::size_t frames_ahead = 12;
constexpr std::int64_t jump_range = 1 << 15;

using frame_queue = std::deque<std::unique_ptr<decoded_frame>>;

/// What a stream is held against.
struct comparison_source {
    std::string name;
    std::function<std::unique_ptr<pcm_source>()> open;
    bool has_masks; ///< an original, which the encoder's model may look at
};

class comparer {
  public:
    comparer(const stream_name &stream, const stream_report &report, comparison_source source)
        : stream_(stream), source_from_(std::move(source)), layer_(report.usual(stream_report::layer)),
          channels_(report.usual_channels()), rate_(report.usual(stream_report::rate)),
          samples_(report.usual_samples()), report_(report) {
        if (source_from_.has_masks && rate_ < 32000)
            throw failure(exit_code::input,
                          "--source needs 32000, 44100 or 48000 Hz: the psychoacoustic model"
                          " knows no lower rates");
        source_ = std::make_unique<source_reader>(source_from_.open(), channels_, rate_);
        total_.name = source_from_.name;
        total_.channels = channels_;
    }

    comparison_totals run(const std::function<void(const compared_frame &)> &each) {
        find_offset();
        offset_ = total_.offset;
        frame_decoder decoder = decode();
        frame_queue ahead;
        for (std::int64_t at = 0;; at += ahead.front()->samples, ahead.pop_front()) {
            while (ahead.size() < frames_ahead) {
                auto next = std::make_unique<decoded_frame>();
                if (!decoder.next(*next)) break;
                ahead.push_back(std::move(next));
            }
            if (ahead.empty()) break;
            follow_jump(ahead, at);
            compare_frame(*ahead.front(), at, each);
        }
        sum_up();
        return total_;
    }

  private:
    frame_decoder decode() const { return {stream_, report_}; }

    /// The first loud part of the stream, found in the source.
    void find_offset() {
        channel_sound decoded(static_cast<std::size_t>(channels_));
        std::int64_t skipped = 0;
        frame_decoder decoder = decode();
        decoded_frame frame{};
        const auto is_loud = [](float x) { return std::fabs(x) > 0.003F; };
        while (static_cast<std::int64_t>(decoded.front().size()) < searched_window
               && decoder.next(frame)) {
            const auto pcm = [&](std::size_t ch) {
                return std::span(frame.pcm[ch], static_cast<std::size_t>(frame.samples));
            };
            if (decoded.front().empty() && std::ranges::none_of(pcm(0), is_loud)
                && std::ranges::none_of(pcm(1), is_loud)) {
                skipped += frame.samples;
                continue;
            }
            for (std::size_t ch = 0; ch < decoded.size(); ++ch)
                decoded[ch].insert(decoded[ch].end(), pcm(ch).begin(), pcm(ch).end());
        }
        if (decoded.front().empty())
            throw not_alike(exit_code::input, "the stream is silent: nothing to align the source by");
        const std::int64_t begin = std::max<std::int64_t>(0, skipped - searched_range);
        source_reader reader(source_from_.open(), channels_, rate_);
        const channel_sound source = reader.read_channels(
            begin, static_cast<std::size_t>(skipped - begin + searched_window + searched_range));
        // What is decoded too is as late as the stream is.
        const std::int64_t delay = source_from_.has_masks ? decoder_delay(layer_) : 0;
        const auto length = static_cast<std::int64_t>(decoded.front().size());
        const auto found = align(decoded, source, skipped - delay - begin,
                                 std::max(skipped - searched_range - begin, -length),
                                 skipped + searched_range - begin);
        total_.correlation = found ? std::fabs(found->correlation) : 0;
        if (!found || total_.correlation < 0.3)
            throw not_alike(exit_code::input, source_from_.name + " does not seem to be the source of "
                                                  + stream_.path + ": they correlate by "
                                                  + std::to_string(total_.correlation) + " at best");
        total_.offset = found->lag + begin - skipped;
        total_.swapped = found->swapped;
        total_.inverted = found->correlation < 0;
        find_gain(products_of(decoded, source, found->lag, found->swapped));
    }

    /// Coding takes energy away and adds noise; a gain is one that neither explains.
    void find_gain(const sound_products &sums) {
        const double both = std::fabs(sums.both), least = both / sums.source,
                     most = sums.decoded / both;
        double gain = least <= 1.02 && most >= 0.98 ? 1 : std::sqrt(sums.decoded / sums.source);
        total_.gain_db = 20 * std::log10(gain);
        if (total_.inverted) gain = -gain;
        source_->adjust(static_cast<float>(gain), total_.swapped);
    }

    /// Looks for another place where the sound from here on is not like the source any more.
    void follow_jump(const frame_queue &ahead, std::int64_t at) {
        if (quiet_for_ > 0) --quiet_for_;
        const auto valid = static_cast<std::size_t>(
            std::ranges::find(ahead, false, [](const auto &frame) { return frame->valid; })
            - ahead.begin());
        if (valid == 0) return;
        const double here = correlation_of(ahead, 1, at);
        const bool is_like = here >= usual_correlation_ - 0.3;
        if (is_like) usual_correlation_ += (here - usual_correlation_) / 32;
        if (is_like || quiet_for_ > 0 || valid < frames_ahead / 2) return;
        const double all = correlation_of(ahead, valid, at);
        if (all >= usual_correlation_ - 0.3) return;
        const channel_sound decoded = sound_of(ahead, valid);
        const std::int64_t begin = at + offset_ - jump_range;
        const channel_sound source =
            adjusted(begin, decoded.front().size() + 2 * static_cast<std::size_t>(jump_range));
        const auto found = align(decoded, source, jump_range, 0, 2 * jump_range);
        if (!found || found->lag == jump_range || found->swapped || found->correlation < all + 0.2) {
            quiet_for_ = frames_ahead;
            return;
        }
        const std::int64_t moved = found->lag - jump_range;
        offset_ += moved;
        if (total_.frames == 0 && total_.jumps.empty())
            total_.offset = offset_; // more of the searched sound lay behind a jump than before it
        else
            total_.jumps.push_back({.frame = ahead.front()->number, .samples = moved});
    }

    channel_sound sound_of(const frame_queue &ahead, std::size_t frames) const {
        channel_sound sound(static_cast<std::size_t>(channels_));
        for (std::size_t i = 0; i < frames; ++i)
            for (std::size_t ch = 0; ch < sound.size(); ++ch)
                sound[ch].insert(sound[ch].end(), ahead[i]->pcm[ch],
                                 ahead[i]->pcm[ch] + ahead[i]->samples);
        return sound;
    }
    /// The source with the stream's gain and sides.
    channel_sound adjusted(std::int64_t first, std::size_t instants) {
        const auto interleaved = source_->read(first, instants);
        channel_sound out(static_cast<std::size_t>(channels_), std::vector<float>(instants));
        for (std::size_t i = 0; i < interleaved.size(); ++i)
            out[i % out.size()][i / out.size()] = interleaved[i];
        return out;
    }

    /// Of the next frames with the source where it is now; the usual one where the stream is silent.
    double correlation_of(const frame_queue &ahead, std::size_t frames, std::int64_t at) {
        const channel_sound decoded = sound_of(ahead, frames);
        const std::size_t size = decoded.front().size();
        const auto sums = products_of(decoded, adjusted(at + offset_, size), 0, false);
        if (sums.decoded < 1e-6 * static_cast<double>(size)) return usual_correlation_;
        return sums.source > 0 ? sums.both / std::sqrt(sums.decoded * sums.source) : 0;
    }

    /// The encoder's view of the source, a frame ahead so that filterbank and model have their history.
    void analyze(std::int64_t position) {
        const auto instants = static_cast<std::size_t>(samples_);
        if (next_position_ != position) {
            analysis_ =
                std::make_unique<source_analysis>(layer_, channels_, rate_, source_from_.has_masks);
            analysis_->analyze(source_->read(position - samples_, instants), subbands_, smr_);
        }
        analysis_->analyze(source_->read(position, instants), subbands_, smr_);
        next_position_ = position + samples_;
    }

    /// Whether the encoder had there what the source has. Its input is silent before the start and after
    /// the end; of a source that is only a part of what was encoded that is not so.
    bool lies_inside(std::int64_t position, std::uint64_t number) {
        constexpr std::int64_t history = 480;
        constexpr std::uint64_t few = 3;
        const auto end = source_->length();
        if (position + samples_ <= 0 || (end && position >= *end)) return false;
        if (number >= few && position < history && total_.outside > 0) return false;
        return !end || position + samples_ <= *end || report_.frames - number <= few;
    }

    void compare_frame(const decoded_frame &decoded, std::int64_t at,
                       const std::function<void(const compared_frame &)> &each) {
        for (const auto &channel : decoded.pcm)
            total_.clipped += static_cast<std::uint64_t>(std::ranges::count_if(channel, is_clipped));
        const parsed_frame &f = decoded.frame;
        // Where the encoder's frame begins in the source.
        const std::int64_t position = at + offset_ + decoder_delay(layer_);
        if (decoded.is_frame && (f.layer != layer_ || f.rate != rate_ || f.channels() != channels_)) {
            ++total_.others;
        } else if (!lies_inside(position, decoded.number)) {
            if (decoded.is_frame) ++total_.outside;
        } else {
            analyze(position);
            if (!decoded.valid) return;
            if (total_.frames == 0)
                total_.source_begin = seconds_of(std::max<std::int64_t>(position, 0));
            total_.source_end = seconds_of(position + samples_);
            compared_frame result{
                .number = decoded.number, .level = {}, .error = {}, .snr = {}, .nmr = {}};
            compare(decoded.subbands, subbands_, smr_, result);
            each(result);
        }
    }

    void compare(const frame_subbands &decoded, const double (&source)[2][36][32],
                 const double (&smr)[2][32], compared_frame &result) {
        const int steps = samples_ / 32;
        for (int ch = 0; ch < channels_; ++ch) {
            for (int sb = 0; sb < 32; ++sb) {
                double signal = 0, noise = 0;
                for (int i = 0; i < steps; ++i) {
                    const double x = source[ch][i][sb], e = x - static_cast<double>(decoded[ch][i][sb]);
                    signal += x * x;
                    noise += e * e;
                }
                signal_[ch][sb] += signal;
                noise_[ch][sb] += noise;
                // Below what 24 bits hold there is nothing to compare.
                const bool silent = signal / steps < 1e-14;
                const double snr = silent ? 0 : signal_to_noise(signal, noise);
                const double ratio = silent ? 0 : std::pow(10, (smr[ch][sb] - snr) / 10);
                nmr_[ch][sb] += ratio;
                worst_ratio_ = std::max(worst_ratio_, ratio);
                result.level[ch][sb] = static_cast<float>(decibels(2 * signal / steps));
                result.error[ch][sb] = static_cast<float>(decibels(2 * noise / steps));
                result.snr[ch][sb] = static_cast<float>(snr);
                result.nmr[ch][sb] = static_cast<float>(decibels(ratio));
            }
        }
        ++total_.frames;
    }

    void sum_up() {
        const auto frames = static_cast<double>(total_.frames);
        double signal = 0, noise = 0, ratio = 0;
        for (int ch = 0; ch < channels_; ++ch) {
            for (int sb = 0; sb < 32; ++sb) {
                signal += signal_[ch][sb];
                noise += noise_[ch][sb];
                ratio += nmr_[ch][sb];
                total_.subband_level[ch][sb] = decibels(2 * signal_[ch][sb] / frames / (samples_ / 32));
                total_.subband_snr[ch][sb] = signal_to_noise(signal_[ch][sb], noise_[ch][sb]);
                total_.subband_nmr[ch][sb] = decibels(nmr_[ch][sb] / frames);
            }
        }
        if (const auto length = source_->length()) {
            total_.source_seconds = seconds_of(*length);
            total_.source_end = std::min(total_.source_end, *total_.source_seconds);
        }
        total_.snr = signal_to_noise(signal, noise);
        total_.worst_nmr = decibels(worst_ratio_);
        total_.mean_nmr = decibels(ratio / frames / channels_ / 32);
    }

    double seconds_of(std::int64_t instants) const { return static_cast<double>(instants) / rate_; }

    stream_name stream_;
    comparison_source source_from_;
    int layer_, channels_, rate_, samples_;
    const stream_report &report_;
    std::unique_ptr<source_reader> source_;
    std::unique_ptr<source_analysis> analysis_;
    double subbands_[2][36][32] = {}, smr_[2][32] = {};
    std::int64_t offset_ = 0;
    std::optional<std::int64_t> next_position_; ///< of the source, behind what was analyzed
    double usual_correlation_ = 0.9;
    std::size_t quiet_for_ = 0; ///< frames until the next search
    comparison_totals total_{};
    double signal_[2][32] = {}, noise_[2][32] = {}, nmr_[2][32] = {}, worst_ratio_ = 0;
};

} // namespace

comparison_totals compare_with_source(const stream_name &stream, const stream_report &report,
                                      const std::string &source_path,
                                      const std::function<void(const compared_frame &)> &each) {
    const auto open = [&] { return open_source(source_path); };
    return comparer(stream, report, {.name = source_path, .open = open, .has_masks = true}).run(each);
}

comparison_totals compare_with_stream(const stream_name &stream, const stream_report &report,
                                      const stream_name &other, const stream_report &other_report,
                                      const std::function<void(const compared_frame &)> &each) {
    const auto open = [&] { return std::make_unique<decoded_source>(other, other_report); };
    return comparer(stream, report, {.name = other.path, .open = open, .has_masks = false}).run(each);
}

} // namespace tools
