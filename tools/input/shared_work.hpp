// Work of a source that the threads of an encode can do.
#pragma once

#include <cstddef>

namespace tools {

class work {
  public:
    work() = default;
    virtual ~work() = default;
    work(const work &) = delete;
    work &operator=(const work &) = delete;

    /// On any thread, one at a time.
    virtual void run() = 0;

    bool done = false; ///< belongs to the crew
};

class work_crew {
  public:
    virtual ~work_crew() = default;

    /// Work is begun in the order in which it comes.
    /// @param next  belongs to the crew until it is finished or the crew has gone
    virtual void submit(work &next) = 0;

    /// Returns when the work is done; meanwhile the calling thread works, too.
    /// @throws whatever ended a thread
    virtual void finish(work &wanted) = 0;

    /// Threads so far, the caller's included.
    virtual std::size_t threads() const noexcept = 0;
};

} // namespace tools
