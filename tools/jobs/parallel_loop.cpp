#include "jobs/parallel_loop.hpp"

#include "jobs/segment_crew.hpp"
#include "jobs/segment_reader.hpp"

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

/// Reads and writes on the thread that made it, and encodes there whenever it would have to wait for
/// the others.
class parallel_run {
  public:
    parallel_run(pcm_source &source, const mpeg_a_settings &settings, frame_writer &writer,
                 progress_listener &shown, const division &how)
        : writer_(writer), shown_(shown), how_(how),
          frame_samples_(settings.audio_layer == 1 ? MPEG_A_LAYER1_SAMPLES : MPEG_A_LAYER2_SAMPLES),
          reader_(source, frame_samples_, how.segment_frames),
          crew_(settings, source.shape(), how.jobs, how.segment_frames, how.spare) {}

    encoded_sound run() {
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

  private:
    enum class input { ready, late, ended };

    std::size_t most_in_flight() const noexcept { return segments_per_job * crew_.threads(); }

    std::unique_ptr<segment> vacant_segment() {
        if (vacant_.empty()) return std::make_unique<segment>(how_.segment_frames);
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
            show_progress();
        }
        return input::ready;
    }

    void submit(std::unique_ptr<segment> next) {
        if (next->is_empty()) {
            vacant_.push_back(std::move(next));
            return;
        }
        in_flight_.push_back(std::move(next));
        crew_.submit(*in_flight_.back());
    }

    void write_oldest() {
        auto &oldest = in_flight_.front();
        crew_.finish(*oldest);
        works_ = writer_.write(oldest->frames);
        clipped_.add(oldest->clipped);
        vacant_.push_back(std::move(oldest));
        in_flight_.pop_front();
        show_progress();
    }

    void show_progress() {
        shown_.update(std::min(writer_.frames() * frame_samples_, reader_.samples()));
    }

    frame_writer &writer_;
    progress_listener &shown_;
    division how_;
    std::size_t frame_samples_;
    bool works_ = true; ///< the output
    clip_count clipped_;
    segment_reader reader_;
    std::deque<std::unique_ptr<segment>> in_flight_; ///< in the order of the stream
    std::vector<std::unique_ptr<segment>> vacant_;
    segment_crew crew_; ///< last, so that it ends before the segments that it may be working on
};

} // namespace

encoded_sound encode_in_parallel(pcm_source &source, const mpeg_a_settings &settings,
                                 frame_writer &writer, progress_listener &shown, const division &how) {
    return parallel_run(source, settings, writer, shown, how).run();
}

} // namespace tools
