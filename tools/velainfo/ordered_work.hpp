// Files worked on side by side, their results taken one after the other in the files' order.
#pragma once

#include "output/unfinished_files.hpp"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace tools {

/// A result, or why there is none.
template <class Result>
struct outcome {
    std::optional<Result> result;
    std::exception_ptr error;

    template <class Work, class Name>
    static outcome of(Work &work, const Name &name) {
        try {
            return {work(name), nullptr};
        } catch (...) {
            return {std::nullopt, std::current_exception()};
        }
    }
};

/// @param threads  0: one for every processor
/// @param work     makes a Result of a name; called by several threads at once
/// @param take     gets the results; called by this thread only
/// @throws what `work` or `take` throws, the first in the order of the names
template <class Result, class Name, class Work, class Take>
void in_order(const std::vector<Name> &names, unsigned threads, Work work, Take take) {
    if (threads == 0) threads = std::max(std::thread::hardware_concurrency(), 1u);
    threads = std::min(threads, static_cast<unsigned>(names.size()));
    if (threads <= 1) {
        for (const Name &name : names)
            take(work(name));
        return;
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::size_t, outcome<Result>> finished;
    std::size_t next = 0, taken = 0;
    bool stop = false;
    // Results that wait for an earlier one must not pile up.
    const std::size_t most_ahead = 4 * std::size_t{threads};
    const auto run = [&] {
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock,
                         [&] { return stop || next >= names.size() || next < taken + most_ahead; });
            if (stop || next >= names.size()) return;
            const std::size_t mine = next++;
            lock.unlock();
            auto done = outcome<Result>::of(work, names[mine]);
            lock.lock();
            finished.emplace(mine, std::move(done));
            changed.notify_all();
        }
    };
    std::vector<std::jthread> crew;
    struct stopper {
        std::mutex &mutex;
        std::condition_variable &changed;
        bool &stop;
        ~stopper() {
            const std::lock_guard lock(mutex);
            stop = true;
            changed.notify_all();
        }
    } at_the_end{mutex, changed, stop};
    {
        const signals_held held;
        for (unsigned i = 0; i < threads; ++i)
            crew.emplace_back(run);
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return finished.contains(i); });
        outcome<Result> done = std::move(finished.at(i));
        finished.erase(i);
        ++taken;
        changed.notify_all();
        lock.unlock();
        if (done.error) std::rethrow_exception(done.error);
        take(std::move(*done.result));
    }
}

} // namespace tools
