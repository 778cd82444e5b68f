// Threads that encode segments, each of them with an encoder of its own, and do other work before that.
#pragma once

#include "input/shared_work.hpp"
#include "jobs/segment.hpp"
#include "jobs/stream_encoder.hpp"
#include "jobs/thread_budget.hpp"

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <variant>
#include <vector>

namespace tools {

/// The thread that hands the segments out belongs to the crew: while it waits for a segment it encodes
/// another one. A thread is started only when there is more to do than those that run can do, so a
/// short file is encoded without any.
///
///     submit() --> waiting_ --> a worker, or finish() --> segment.done, work.done
class segment_crew final : public work_crew {
  public:
    /// @param source  where segments that are not there yet are read from, each thread by a reader of
    ///                its own; the source itself is not touched
    /// @param jobs    threads, the caller's included
    /// @param room    frames of a segment at most
    /// @param spare   where further threads are taken from and given back to; null: there are enough
    segment_crew(const mpeg_a_settings &settings, const pcm_source &source, int jobs, std::size_t room,
                 thread_budget *spare);

    /// Segments that no thread has begun stay as they are.
    ~segment_crew() override;
    segment_crew(const segment_crew &) = delete;
    segment_crew &operator=(const segment_crew &) = delete;

    /// Segments come in the order of the stream.
    /// @param next  belongs to the crew until it is finished or the crew has gone
    void submit(segment &next);
    void submit(work &next) override;

    /// Threads so far, the caller's included.
    std::size_t threads() const noexcept override { return 1 + workers_.size(); }

    /// Returns when the segment is done.
    /// @throws whatever ended a worker
    void finish(segment &wanted) { wait_for(wanted.done); }
    void finish(work &wanted) override { wait_for(wanted.done); }

  private:
    using job = std::variant<segment *, tools::work *>;

    void enqueue(job next);
    void wait_for(const bool &done);
    void start_worker();
    void work(const std::stop_token &stop, std::unique_ptr<pcm_source> reader);
    void do_first_waiting(std::unique_lock<std::mutex> &lock, stream_encoder &encoder,
                          std::unique_ptr<pcm_source> &reader);
    void encode(segment &what, stream_encoder &encoder, std::unique_ptr<pcm_source> &reader) const;

    mpeg_a_settings settings_;
    const pcm_source &source_;
    std::size_t frame_samples_;
    std::size_t room_;
    std::size_t most_workers_;
    stream_encoder own_;
    std::unique_ptr<pcm_source> own_reader_; ///< while segments are to be read
    thread_budget *spare_;

    std::mutex mutex_; ///< of the members below, and of whether a job is done
    std::condition_variable_any submitted_;
    std::condition_variable done_;
    std::deque<job> waiting_;
    std::exception_ptr error_;
    std::vector<std::jthread> workers_; ///< last, so that they end before what they use
};

} // namespace tools
