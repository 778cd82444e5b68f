#include "jobs/segment_crew.hpp"

#include "output/unfinished_files.hpp"

#include <system_error>

namespace tools {
namespace {

void encode(segment &what, sample_format format, stream_encoder &encoder) {
    const std::span pcm(what.pcm);
    encoder.go_to(what.first_frame, pcm.first(what.history_bytes));
    encoder.put(pcm.subspan(what.history_bytes));
    what.clipped = {};
    what.clipped.add(pcm.subspan(what.history_bytes), format);
    if (what.last) encoder.finish();
}

} // namespace

segment_crew::segment_crew(const mpeg_a_settings &settings, const pcm_shape &shape, int jobs,
                           std::size_t most_frames, thread_budget *spare)
    : settings_(settings), shape_(shape), most_frames_(most_frames),
      most_workers_(static_cast<std::size_t>(jobs - 1)), own_(settings, shape, most_frames + 1),
      spare_(spare) {
}

segment_crew::~segment_crew() {
    {
        const std::lock_guard lock(mutex_);
        waiting_.clear();
    }
    const auto borrowed = static_cast<int>(workers_.size());
    workers_.clear();
    if (spare_ != nullptr) spare_->give(borrowed);
}

void segment_crew::submit(segment &next) {
    next.done = false;
    std::size_t waiting = 0;
    {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(&next);
        waiting = waiting_.size();
    }
    // The first one is left to whoever comes first: a source that is slower than one thread needs no
    // other.
    if (waiting == 1) return;
    submitted_.notify_one();
    if (workers_.size() < most_workers_ && (spare_ == nullptr || spare_->take())) start_worker();
}

void segment_crew::finish(segment &wanted) {
    std::unique_lock lock(mutex_);
    while (!wanted.done) {
        done_.wait(lock, [&] { return wanted.done || !waiting_.empty() || error_; });
        if (error_) std::rethrow_exception(error_);
        if (!wanted.done) encode_first_waiting(lock, own_);
    }
}

void segment_crew::start_worker() {
    // Signals go to the main thread, whose list of unfinished files they look at.
    const signals_held inherited;
    try {
        workers_.emplace_back([this](const std::stop_token &stop) { work(stop); });
    } catch (const std::system_error &) {
        most_workers_ = workers_.size(); // the system has no more; fewer will do
        if (spare_ != nullptr) spare_->give(1);
    }
}

void segment_crew::work(const std::stop_token &stop) {
    try {
        stream_encoder encoder(settings_, shape_, most_frames_ + 1);
        std::unique_lock lock(mutex_);
        while (submitted_.wait(lock, stop, [this] { return !waiting_.empty(); })) {
            encode_first_waiting(lock, encoder);
            done_.notify_one();
        }
    } catch (...) {
        const std::lock_guard lock(mutex_);
        error_ = std::current_exception();
        done_.notify_one();
    }
}

void segment_crew::encode_first_waiting(std::unique_lock<std::mutex> &lock, stream_encoder &encoder) {
    segment &first = *waiting_.front();
    waiting_.pop_front();
    lock.unlock();
    encode(first, shape_.format, encoder);
    encoder.output().exchange(first.frames);
    lock.lock();
    first.done = true;
}

} // namespace tools
