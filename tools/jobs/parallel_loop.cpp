#include "jobs/parallel_loop.hpp"

#include "jobs/segment_crew.hpp"
#include "jobs/segment_reader.hpp"
#include "settings/record.hpp"

#include <algorithm>
#include <chrono>
#include <deque>
#include <memory>
#include <vector>

namespace tools {
namespace {

using clock = std::chrono::steady_clock;

/// The longest time that frames wait for more input to come. An input that needs more than that for a
/// segment is slower than a single thread by far.
constexpr std::chrono::milliseconds patience{20};

/// One being encoded and one ready for every thread.
constexpr std::size_t segments_per_job = 2;

/// Writes on the thread that made it, and encodes there whenever it would have to wait for the others.
/// Where the source can be read in several places at once, those who encode also read; else this thread
/// does.
class parallel_run {
  public:
    parallel_run(pcm_source &source, const mpeg_a_settings &settings, frame_writer &writer,
                 progress_listener &shown, const division &how)
        : source_(source), settings_(settings), writer_(writer), shown_(shown), how_(how),
          frame_samples_(static_cast<std::size_t>(samples_of_frame(settings))),
          reader_(source, frame_samples_, how.segment_frames) {}

    ~parallel_run() { source_.work_with(nullptr); }
    parallel_run(const parallel_run &) = delete;
    parallel_run &operator=(const parallel_run &) = delete;

    encoded_sound run() {
        form_crew();
        if (source_.length() > segment_samples() && source_.another()) {
            if (read_side_by_side(*source_.length())) return {*source_.length(), clipped_};
            reader_.skip(writer_.frames() / how_.segment_frames);
            form_crew(); // encoders do not go back
        }
        return read_here();
    }

  private:
    enum class input { ready, late, ended };

    encoded_sound read_here() {
        source_.work_with(&*crew_);
        for (auto state = input::ready; state != input::ended && works_;) {
            auto next = vacant_segment();
            reader_.begin(*next);
            state = fill(*next);
            reader_.cut(*next);
            submit(std::move(next));
            const std::size_t kept = state == input::ready ? most_in_flight() - 1 : 0;
            while (works_ && in_flight_.size() > kept)
                write_oldest();
        }
        if (works_) reader_.check();
        return {reader_.samples(), clipped_};
    }

    void form_crew() { crew_.emplace(settings_, source_, how_.jobs, room(), how_.spare); }

    /// In frames, for what is left behind the last whole one, too.
    std::size_t room() const noexcept { return how_.segment_frames + 1; }

    /// Returns false when the source turns out not to be the same from wherever it is read; everything
    /// up to there has been written then.
    bool read_side_by_side(std::uint64_t length) {
        for (std::int64_t frame = 0; works_ && agree_ && at(frame) < length;
             frame += static_cast<std::int64_t>(how_.segment_frames)) {
            auto next = vacant_segment();
            plan(*next, frame, length);
            submit(std::move(next));
            while (works_ && agree_ && in_flight_.size() >= most_in_flight())
                write_oldest();
        }
        while (works_ && !in_flight_.empty())
            agree_ ? write_oldest() : drop_oldest();
        return agree_;
    }

    void plan(segment &next, std::int64_t frame, std::uint64_t length) const {
        const std::size_t instant = source_.shape().instant_bytes();
        const auto history = std::min(frame, static_cast<std::int64_t>(stream_encoder::history_frames));
        const std::uint64_t sound = std::min(length - at(frame), segment_samples());
        next.first_frame = frame;
        next.history_bytes = static_cast<std::size_t>(at(history)) * instant;
        next.pcm_bytes = next.history_bytes + static_cast<std::size_t>(sound) * instant;
        next.last = at(frame) + sound == length;
    }

    /// Samples before that frame.
    std::uint64_t at(std::int64_t frame) const noexcept {
        return static_cast<std::uint64_t>(frame) * frame_samples_;
    }

    std::uint64_t segment_samples() const noexcept { return how_.segment_frames * frame_samples_; }

    /// A segment read after a seek begins with what the one before it ended with.
    bool continues(const segment &next) {
        if (!next.is_sound) return false;
        const auto history = std::span(next.pcm).first(next.history_bytes);
        if (!std::ranges::equal(history, tail_)) return false;
        const std::size_t kept =
            stream_encoder::history_frames * frame_samples_ * source_.shape().instant_bytes();
        const auto end = std::span(next.pcm).last(std::min(kept, next.pcm.size()));
        tail_.assign(end.begin(), end.end());
        return true;
    }

    void drop_oldest() {
        crew_->finish(*in_flight_.front());
        in_flight_.front()->frames.clear();
        vacant_.push_back(std::move(in_flight_.front()));
        in_flight_.pop_front();
    }

    std::size_t most_in_flight() const noexcept { return segments_per_job * crew_->threads(); }

    std::unique_ptr<segment> vacant_segment() {
        if (vacant_.empty()) return std::make_unique<segment>(room());
        auto next = std::move(vacant_.back());
        vacant_.pop_back();
        return next;
    }

    input fill(segment &next) {
        const auto deadline = clock::now() + patience;
        while (!reader_.is_full(next)) {
            const bool frames_wait = reader_.has_frames(next) || !in_flight_.empty();
            if (frames_wait && !reader_.ready_before(deadline)) return input::late;
            if (!reader_.read(next)) return input::ended;
            show_progress(); // of what has been written before a pause of the input
        }
        return input::ready;
    }

    void submit(std::unique_ptr<segment> next) {
        if (next->pcm_bytes == 0 && next->is_empty()) {
            vacant_.push_back(std::move(next));
            return;
        }
        in_flight_.push_back(std::move(next));
        crew_->submit(*in_flight_.back());
    }

    void write_oldest() {
        auto &oldest = in_flight_.front();
        crew_->finish(*oldest);
        agree_ = oldest->pcm_bytes == 0 || continues(*oldest);
        if (!agree_) return drop_oldest();
        works_ = writer_.write(oldest->frames);
        clipped_.add(oldest->clipped);
        vacant_.push_back(std::move(oldest));
        in_flight_.pop_front();
        show_progress();
    }

    void show_progress() { shown_.update(writer_.frames() * frame_samples_); }

    pcm_source &source_;
    mpeg_a_settings settings_;
    frame_writer &writer_;
    progress_listener &shown_;
    division how_;
    std::size_t frame_samples_;
    bool works_ = true; ///< the output
    bool agree_ = true; ///< those who read
    std::vector<std::byte>
        tail_; ///< of the segment written last, as far as the next one's history goes
    clip_count clipped_;
    segment_reader reader_;
    std::deque<std::unique_ptr<segment>> in_flight_; ///< in the order of the stream
    std::vector<std::unique_ptr<segment>> vacant_;
    std::optional<segment_crew>
        crew_; ///< last, so that it ends before the segments that it may be working on
};

} // namespace

encoded_sound encode_in_parallel(pcm_source &source, const mpeg_a_settings &settings,
                                 frame_writer &writer, progress_listener &shown, const division &how) {
    const auto total = parallel_run(source, settings, writer, shown, how).run();
    shown.update(total.samples); // the last frame is not filled by sound alone
    return total;
}

} // namespace tools
