#include "check/stream_check.hpp"

#include "check/stream_decoder.hpp"
#include "common/failure.hpp"
#include "input/sample_value.hpp"
#include "jobs/progress.hpp"
#include "output/unfinished_files.hpp"
#include "parser/frame_header.hpp"
#include "settings/record.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>

namespace tools {
namespace {

[[noreturn]] void is_wrong(const std::string &what) {
    throw failure(exit_code::internal, "--check: " + what + "; the stream gets no name");
}

/// Where each frame begins. All of them are of one kind and follow each other.
std::vector<std::uint64_t> find_frames(const finished_stream &stream) {
    std::vector<std::uint64_t> begins;
    std::array<std::uint8_t, header_bytes> bytes{};
    std::uint64_t at = 0;
    std::optional<stream_header> first;
    while (at < stream.bytes) {
        const auto count = stream.read(stream.begin + at, std::as_writable_bytes(std::span(bytes)));
        const auto header = read_header(std::span(bytes).first(count));
        if (!first) first = header;
        if (!header || !header->same_kind(*first) || header->version != 1
            || header->layer != stream.layer || header->rate != stream.rate
            || header->channels() != stream.channels)
            is_wrong("frame " + std::to_string(begins.size()) + ", at byte "
                     + std::to_string(stream.begin + at) + ", has no header of this stream");
        begins.push_back(at);
        at += static_cast<std::uint64_t>(header->bytes());
    }
    if (at != stream.bytes || begins.size() != stream.frames)
        is_wrong("its " + std::to_string(stream.frames) + " frames do not fill its bytes");
    return begins;
}

/// Floats that come in blocks, taken in pieces of any length.
class float_queue {
  public:
    using refill_function = std::function<std::span<const float>()>; ///< empty at the end

    explicit float_queue(refill_function refill) : refill_(std::move(refill)) {}

    /// Fewer come at the end.
    void take(std::size_t count, std::vector<float> &to) {
        to.clear();
        while (to.size() < count) {
            if (rest_.empty()) rest_ = refill_();
            if (rest_.empty()) return;
            const auto piece = rest_.first(std::min(rest_.size(), count - to.size()));
            to.insert(to.end(), piece.begin(), piece.end());
            rest_ = rest_.subspan(piece.size());
        }
    }

  private:
    refill_function refill_;
    std::span<const float> rest_;
};

constexpr std::uint64_t part_seconds = 30;

/// Parts of so many seconds, each decoded by a decoder of its own.
class checking {
  public:
    checking(const finished_stream &stream, pcm_source &source, std::uint64_t samples)
        : stream_(stream), source_(source), samples_(samples), frames_(find_frames(stream)),
          rate_(static_cast<std::uint64_t>(stream.rate)),
          channels_(static_cast<std::size_t>(stream.channels)),
          delay_(static_cast<std::uint64_t>(decoder_delay(stream.layer))),
          seconds_(std::max<std::uint64_t>(samples / rate_, 1)) {
        result_.channels = channels_;
        result_.seconds.resize(static_cast<std::size_t>(seconds_) * channels_);
    }

    check_result run(int jobs) {
        const std::size_t parts = (seconds_ + part_seconds - 1) / part_seconds;
        if (jobs > 1 && source_.another()) {
            run_parts(std::min<std::size_t>(static_cast<std::size_t>(jobs), parts), parts);
        } else {
            for (std::size_t part = 0; part < parts; ++part)
                check_part(part, parts, sound_);
        }
        if (const auto wrong = first_wrong_second(result_.seconds, channels_, stream_.intensity))
            is_wrong("from " + clock_text(static_cast<double>(*wrong), 0)
                     + " on the decoded sound is not the input's");
        return std::move(result_);
    }

  private:
    static std::span<const float> read_floats(pcm_source &source, std::vector<float> &values) {
        load_samples(source.next_block(), source.shape().format, values);
        return values;
    }

    void run_parts(std::size_t threads, std::size_t parts) {
        std::atomic<std::size_t> next = 0;
        std::exception_ptr error;
        const auto work = [&]() noexcept {
            try {
                const auto reader = source_.another();
                for (auto part = next++; part < parts; part = next++) {
                    if (!reader || !reader->seek(part * part_seconds * rate_))
                        throw failure(exit_code::input, "the input cannot be read a second time");
                    std::vector<float> values;
                    float_queue sound([&] { return read_floats(*reader, values); });
                    check_part(part, parts, sound);
                }
            } catch (...) {
                const std::lock_guard lock(mutex_);
                if (!error) error = std::current_exception();
                next = parts;
            }
        };
        {
            const signals_held inherited; // the main thread looks after them
            std::vector<std::jthread> others;
            try {
                while (others.size() + 1 < threads)
                    others.emplace_back(work);
            } catch (const std::system_error &) {
                // The system has no more; fewer will do.
            }
            work();
        }
        if (error) std::rethrow_exception(error);
    }

    stream_decoder decoder_from(std::uint64_t frame) const {
        std::uint64_t at = frames_[static_cast<std::size_t>(frame)];
        return {stream_.rate, stream_.channels, [this, at](std::span<std::byte> room) mutable {
                    const auto left = std::min<std::uint64_t>(room.size(), stream_.bytes - at);
                    const auto count =
                        stream_.read(stream_.begin + at, room.first(static_cast<std::size_t>(left)));
                    at += count;
                    return count;
                }};
    }

    void check_part(std::size_t part, std::size_t parts, float_queue &sound) {
        const std::uint64_t first = part * part_seconds, end = std::min(first + part_seconds, seconds_);
        const bool is_last = part + 1 == parts;
        // The filterbank of the decoder has forgotten what came two frames before.
        const std::uint64_t from = first == 0 ? 0 : first * rate_ + delay_,
                            frame = from / stream_.frame_samples(),
                            lead = std::min<std::uint64_t>(frame, 2);
        stream_decoder decoder = decoder_from(frame - lead);
        float_queue heard([&] { return decoder.next_frame(); });
        over_count overs{};
        std::vector<float> x, y, loud_x, loud_y;
        double loudest = 0;
        heard.take((from - (frame - lead) * stream_.frame_samples()) * channels_, y);
        if (first == 0) {
            heard.take(delay_ * channels_, y);
            overs.add(y);
        }
        for (std::uint64_t second = first; second < end; ++second) {
            const std::uint64_t until = second + 1 == seconds_ ? samples_ : (second + 1) * rate_;
            const std::uint64_t begin = second * rate_, count = std::min(until, heard_samples())
                                                                - std::min(begin, heard_samples());
            sound.take(count * channels_, x);
            heard.take(count * channels_, y);
            if (x.size() != count * channels_ || y.size() != x.size())
                is_wrong("the sound ends at " + clock_text(static_cast<double>(second), 0));
            overs.add(y);
            const auto sums = std::span(result_.seconds)
                                  .subspan(static_cast<std::size_t>(second) * channels_, channels_);
            add_difference(x, y, sums);
            double energy = 0;
            for (const auto &each : sums)
                energy += each.signal;
            if (energy <= loudest) continue;
            loudest = energy;
            loud_x.swap(x);
            loud_y.swap(y);
        }
        if (is_last) {
            heard.take(2 * stream_.frame_samples() * channels_, y);
            overs.add(y);
        }
        check_time(loud_x, loud_y);
        const std::lock_guard lock(mutex_);
        result_.overs += overs;
    }

    /// Samples a channel that come out of the decoder, without its delay.
    std::uint64_t heard_samples() const noexcept {
        return std::max(stream_.frames * stream_.frame_samples(), delay_) - delay_;
    }

    /// By the loudest second of a part.
    void check_time(std::span<const float> x, std::span<const float> y) const {
        constexpr std::size_t length = 4096, reach = longest_shift;
        if (x.size() / channels_ < length + 2 * reach) return;
        for (std::size_t ch = 0; ch < channels_; ++ch) {
            std::vector<float> sound, decoded;
            for (std::size_t i = 0; i < length + 2 * reach; ++i)
                sound.push_back(x[i * channels_ + ch]);
            for (std::size_t i = reach; i < reach + length; ++i)
                decoded.push_back(y[i * channels_ + ch]);
            if (const auto shift = find_shift(sound, decoded))
                is_wrong("the decoded sound lies " + std::to_string(std::abs(*shift)) + " samples too "
                         + (*shift > 0 ? "late" : "early"));
        }
    }

    const finished_stream &stream_;
    pcm_source &source_;
    std::uint64_t samples_;
    std::vector<std::uint64_t> frames_;
    std::uint64_t rate_;
    std::size_t channels_;
    std::uint64_t delay_, seconds_;
    std::vector<float> values_;
    float_queue sound_{[this] { return read_floats(source_, values_); }};
    std::mutex mutex_; ///< of `overs` in the result
    check_result result_{};
};

} // namespace

std::optional<double> check_result::second(std::size_t index) const noexcept {
    second_sums sum{};
    for (std::size_t ch = 0; ch < channels; ++ch)
        sum += seconds[index * channels + ch];
    return signal_to_noise(sum);
}

std::optional<double> check_result::whole() const noexcept {
    second_sums sum{};
    for (const auto &each : seconds)
        sum += each;
    return signal_to_noise(sum);
}

check_result check_stream(const finished_stream &stream, pcm_source &source, std::uint64_t samples,
                          int jobs) {
    return checking(stream, source, samples).run(jobs);
}

} // namespace tools
