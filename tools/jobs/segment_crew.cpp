#include "jobs/segment_crew.hpp"

#include "common/failure.hpp"
#include "output/unfinished_files.hpp"
#include "settings/record.hpp"

#include <algorithm>
#include <system_error>

namespace tools {
namespace {

/// The history and the segment, by way of a seek. Returns false where the source ends too soon or too late.
bool read(segment &into, pcm_source &reader, std::size_t frame_samples) {
    const std::size_t instant = reader.shape().instant_bytes();
    const std::uint64_t start = static_cast<std::uint64_t>(into.first_frame) * frame_samples;
    into.pcm.clear();
    bool goes_on = reader.seek(start - into.history_bytes / instant);
    std::span<const std::byte> block;
    while (goes_on && into.pcm.size() < into.pcm_bytes) {
        block = reader.next_block();
        goes_on = !block.empty();
        const auto part = block.first(std::min(block.size(), into.pcm_bytes - into.pcm.size()));
        into.pcm.insert(into.pcm.end(), part.begin(), part.end());
        block = block.subspan(part.size());
    }
    return goes_on && (!into.last || (block.empty() && reader.next_block().empty()));
}

/// An input that cannot be read this way is read from its start later, and says then what is wrong.
bool try_to_read(segment &into, pcm_source &reader, std::size_t frame_samples) {
    try {
        return read(into, reader, frame_samples);
    } catch (const failure &) {
        return false;
    }
}

void encode_sound(segment &what, sample_format format, stream_encoder &encoder) {
    const std::span pcm(what.pcm);
    encoder.go_to(what.first_frame, pcm.first(what.history_bytes));
    encoder.put(pcm.subspan(what.history_bytes));
    what.clipped = {};
    what.clipped.add(pcm.subspan(what.history_bytes), format);
    if (what.last) encoder.finish();
}

} // namespace

segment_crew::segment_crew(const mpeg_a_settings &settings, const pcm_source &source, int jobs,
                           std::size_t room, thread_budget *spare)
    : settings_(settings), source_(source),
      frame_samples_(static_cast<std::size_t>(samples_of_frame(settings))), room_(room),
      most_workers_(static_cast<std::size_t>(jobs - 1)), own_(settings, source.shape(), room),
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
    if (next.pcm_bytes != 0 && !own_reader_) own_reader_ = source_.another();
    enqueue(&next);
}

void segment_crew::submit(tools::work &next) {
    next.done = false;
    enqueue(&next);
}

void segment_crew::enqueue(job next) {
    std::unique_lock lock(mutex_);
    waiting_.push_back(next);
    // The first one is left to whoever comes first: a source that is slower than one thread needs no
    // other.
    if (waiting_.size() == 1) return;
    lock.unlock();
    submitted_.notify_one();
    if (workers_.size() < most_workers_ && (spare_ == nullptr || spare_->take())) start_worker();
}

void segment_crew::wait_for(const bool &done) {
    std::unique_lock lock(mutex_);
    while (!done) {
        done_.wait(lock, [&] { return done || !waiting_.empty() || error_; });
        if (error_) std::rethrow_exception(error_);
        if (!done) do_first_waiting(lock, own_, own_reader_);
    }
}

void segment_crew::start_worker() {
    // Signals go to the main thread, whose list of unfinished files they look at.
    const signals_held inherited;
    try {
        workers_.emplace_back(
            [this](const std::stop_token &stop, std::unique_ptr<pcm_source> reader) {
                work(stop, std::move(reader));
            },
            own_reader_ ? source_.another() : nullptr);
    } catch (const std::system_error &) {
        most_workers_ = workers_.size(); // the system has no more; fewer will do
        if (spare_ != nullptr) spare_->give(1);
    }
}

void segment_crew::work(const std::stop_token &stop, std::unique_ptr<pcm_source> reader) {
    try {
        stream_encoder encoder(settings_, source_.shape(), room_);
        std::unique_lock lock(mutex_);
        while (submitted_.wait(lock, stop, [this] { return !waiting_.empty(); })) {
            do_first_waiting(lock, encoder, reader);
            done_.notify_one();
        }
    } catch (...) {
        const std::lock_guard lock(mutex_);
        error_ = std::current_exception();
        done_.notify_one();
    }
}

void segment_crew::do_first_waiting(std::unique_lock<std::mutex> &lock, stream_encoder &encoder,
                                    std::unique_ptr<pcm_source> &reader) {
    const job first = waiting_.front();
    waiting_.pop_front();
    lock.unlock();
    if (auto *const *frames = std::get_if<segment *>(&first))
        encode(**frames, encoder, reader);
    else
        std::get<tools::work *>(first)->run();
    lock.lock();
    std::visit([](auto *what) { what->done = true; }, first);
}

void segment_crew::encode(segment &what, stream_encoder &encoder,
                          std::unique_ptr<pcm_source> &reader) const {
    what.is_sound = what.pcm_bytes == 0 || (reader && try_to_read(what, *reader, frame_samples_));
    if (!what.is_sound) return;
    encode_sound(what, source_.shape().format, encoder);
    encoder.output().exchange(what.frames);
}

} // namespace tools
