#include "velainfo/comparison.hpp"

#include "common/failure.hpp"
#include "velainfo/alignment.hpp"
#include "velainfo/source_analysis.hpp"
#include "velainfo/source_reader.hpp"
#include "velainfo/stream_input.hpp"
#include "velainfo/synthesis.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

namespace tools {
namespace {

constexpr std::size_t decoded_window = 1 << 18, source_window = 1 << 20;

/// Subband samples of one frame after the other, and the frames that are missing in between.
class frame_decoder {
  public:
    frame_decoder(const std::string &path, int usual_bytes)
        : input_(path), usual_bytes_(usual_bytes),
          scanner_([this](std::span<std::uint8_t> room) { return input_.read(room); }) {}

    struct result {
        bool valid = false; ///< the frame's fields can be used
        parsed_frame frame;
        frame_subbands subbands;
    };

    /// None at the end. Bytes outside of frames count as the frames that they may have been.
    bool next(result &out) {
        out.valid = false;
        if (missing_ > 0) return --missing_, true;
        const auto piece = scanner_.next();
        if (!piece) return false;
        if (!piece->is_frame) {
            missing_ = started_
                           ? static_cast<int>((piece->length + static_cast<unsigned>(usual_bytes_) / 2)
                                              / static_cast<unsigned>(usual_bytes_))
                           : 0;
            return next(out);
        }
        started_ = true;
        ++number_;
        out.frame = parse_frame(piece->bytes, &codes_);
        out.valid = out.frame.faults == 0;
        if (out.valid) requantize(out.frame, codes_, out.subbands);
        return true;
    }

    /// Of the last frame that was there.
    std::uint64_t number() const { return number_ - 1; }

  private:
    stream_input input_;
    int usual_bytes_;
    frame_scanner scanner_;
    sample_codes codes_;
    std::uint64_t number_ = 0;
    int missing_ = 0;
    bool started_ = false;
};

/// Synthesis of both channels.
struct decoder_output {
    synthesis_filterbank banks[2];

    template <class Body>
    void decode(const frame_decoder::result &in, int channels, int steps, Body body) {
        static constexpr float silence[32] = {};
        for (int i = 0; i < steps; ++i) {
            float pcm[2][32];
            for (int ch = 0; ch < channels; ++ch)
                banks[ch].step(in.valid ? in.subbands[ch][i] : silence, pcm[ch]);
            body(pcm);
        }
    }
};

double decibel(double ratio) {
    return ratio > 1e-15 ? 10 * std::log10(ratio) : -150;
}

class comparer {
  public:
    comparer(const std::string &stream, const stream_report &report, const std::string &source)
        : stream_(stream), source_path_(source), layer_(report.usual(stream_report::layer)),
          channels_(report.channels), rate_(report.usual(stream_report::rate)),
          usual_bytes_(std::max(static_cast<int>(report.frame_bytes / report.frames), 1)),
          source_(source, channels_) {
        total_.name = source;
        total_.channels = channels_;
        if (source_.rate() != rate_)
            throw failure(exit_code::input, source + " has " + std::to_string(source_.rate()) + " Hz, "
                                                + report.name + " has " + std::to_string(rate_)
                                                + " Hz; they should be the same");
        if (rate_ < 32000)
            throw failure(exit_code::input,
                          "--source needs 32000, 44100 or 48000 Hz: the psychoacoustic model"
                          " knows no lower rates");
    }

    comparison_totals run(const std::function<void(const compared_frame &)> &each) {
        find_offset();
        source_analysis analysis(layer_, channels_, rate_);
        // A frame ahead, so that filterbank and model have their history.
        const int samples = analysis.frame_samples();
        std::int64_t position = analysis.first_sample(total_.offset) - samples;
        double subbands[2][36][32], smr[2][32];
        const auto instants = static_cast<std::size_t>(samples);
        analysis.analyze(source_.read(position, instants), subbands, smr);
        frame_decoder frames(stream_, usual_bytes_);
        frame_decoder::result decoded;
        decoder_output output;
        while (frames.next(decoded)) {
            position += samples;
            analysis.analyze(source_.read(position, instants), subbands, smr);
            output.decode(decoded, channels_, samples / 32,
                          [&](const auto &pcm) { count_clipped(pcm); });
            if (!decoded.valid) continue;
            compared_frame result;
            result.number = frames.number();
            compare(decoded.subbands, subbands, smr, result);
            each(result);
        }
        sum_up();
        return total_;
    }

  private:
    /// One channel of sound, the first loud part of the stream, found in the source.
    void find_offset() {
        std::vector<float> decoded;
        std::size_t skipped = 0;
        frame_decoder frames(stream_, usual_bytes_);
        frame_decoder::result frame;
        decoder_output output;
        const std::size_t enough = decoded_window;
        while (decoded.size() < enough && frames.next(frame)) {
            output.decode(frame, channels_, layer_ == 1 ? 12 : 36, [&](const auto &pcm) {
                const bool loud =
                    std::ranges::any_of(pcm[0], [](float x) { return std::fabs(x) > 0.003F; });
                if (decoded.empty() && !loud) skipped += 32;
                if (!decoded.empty() || loud) decoded.insert(decoded.end(), pcm[0], pcm[0] + 32);
            });
        }
        if (decoded.empty())
            throw failure(exit_code::input, "the stream is silent: nothing to align the source by");
        const auto begin = std::max<std::int64_t>(0, static_cast<std::int64_t>(skipped)
                                                         - static_cast<std::int64_t>(decoded_window));
        source_reader reader(source_path_, channels_);
        const auto both = reader.read(begin, source_window);
        std::vector<float> source(source_window);
        for (std::size_t i = 0; i < source.size(); ++i)
            source[i] = both[i * static_cast<std::size_t>(channels_)];
        const alignment found = align(decoded, source);
        total_.offset = found.lag + begin - static_cast<std::int64_t>(skipped);
        total_.correlation = found.correlation;
        if (found.correlation < 0.3)
            throw failure(exit_code::input, source_path_ + " does not seem to be the source of "
                                                + stream_ + ": they correlate by "
                                                + std::to_string(found.correlation) + " at best");
    }

    void count_clipped(const float (&pcm)[2][32]) {
        for (int ch = 0; ch < channels_; ++ch)
            total_.clipped += static_cast<std::uint64_t>(
                std::ranges::count_if(pcm[ch], [](float x) { return x >= 1.0F || x < -1.0F; }));
    }

    void compare(const frame_subbands &decoded, const double (&source)[2][36][32],
                 const double (&smr)[2][32], compared_frame &result) {
        const int steps = layer_ == 1 ? 12 : 36;
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
                const double snr =
                    silent ? 0 : std::min(decibel(signal / std::max(noise, 1e-30)), 150.0);
                const double nmr = silent ? -150 : smr[ch][sb] - snr;
                nmr_[ch][sb] += silent ? 0 : std::pow(10, nmr / 10);
                if (!silent)
                    total_.worst_nmr = total_.frames == 0 && ch == 0 && sb == 0
                                           ? nmr
                                           : std::max(total_.worst_nmr, nmr);
                result.level[ch][sb] = static_cast<float>(decibel(2 * signal / steps));
                result.error[ch][sb] = static_cast<float>(decibel(2 * noise / steps));
                result.snr[ch][sb] = static_cast<float>(snr);
                result.nmr[ch][sb] = static_cast<float>(nmr);
            }
        }
        ++total_.frames;
    }

    void sum_up() {
        const auto frames = static_cast<double>(std::max<std::uint64_t>(total_.frames, 1));
        double signal = 0, noise = 0, ratio = 0;
        for (int ch = 0; ch < channels_; ++ch) {
            for (int sb = 0; sb < 32; ++sb) {
                signal += signal_[ch][sb];
                noise += noise_[ch][sb];
                ratio += nmr_[ch][sb];
                total_.subband_level[ch][sb] =
                    decibel(2 * signal_[ch][sb] / frames / (layer_ == 1 ? 12 : 36));
                total_.subband_snr[ch][sb] = decibel(signal_[ch][sb] / std::max(noise_[ch][sb], 1e-30));
                total_.subband_nmr[ch][sb] = decibel(nmr_[ch][sb] / frames);
            }
        }
        total_.snr = decibel(signal / std::max(noise, 1e-30));
        total_.mean_nmr = decibel(ratio / frames / channels_ / 32);
    }

    std::string stream_, source_path_;
    int layer_, channels_, rate_, usual_bytes_;
    source_reader source_;
    comparison_totals total_;
    double signal_[2][32] = {}, noise_[2][32] = {}, nmr_[2][32] = {};
};

} // namespace

comparison_totals compare_with_source(const std::string &stream_path, const stream_report &report,
                                      const std::string &source_path,
                                      const std::function<void(const compared_frame &)> &each) {
    return comparer(stream_path, report, source_path).run(each);
}

} // namespace tools
