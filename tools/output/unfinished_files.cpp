#include "output/unfinished_files.hpp"

#include "common/live_input.hpp"

#include <array>
#include <atomic>
#include <climits>
#include <cstddef>
#include <unistd.h>

namespace tools {
namespace {

/// Everything that ends a program by default and that somebody sends on purpose; timers and limits too.
constexpr std::array fatal_signals{SIGHUP,  SIGINT,  SIGQUIT, SIGTERM,   SIGALRM,
                                   SIGUSR1, SIGUSR2, SIGXCPU, SIGVTALRM, SIGPROF};

enum : int { unused, being_written, listed };

struct entry {
    std::atomic<int> state = unused;
    std::array<char, PATH_MAX> path{};
};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may not wait");

/// Static, because a signal handler can reach nothing else: two files for every thread of the largest
/// batch. What is never used takes no memory.
constinit std::array<entry, 1024> entries;

constinit std::atomic<bool> ending = false;

sigset_t fatal_set() {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : fatal_signals)
        ::sigaddset(&set, signal);
    return set;
}

void remove_files_and_end(int signal) {
    if (end_live_input(signal)) return;
    ending = true;
    for (const entry &each : entries)
        if (each.state == listed) ::unlink(each.path.data());
    // Only now has the signal its ordinary effect, an exit status included: until here a second one,
    // as timeout sends it, has waited.
    std::signal(signal, SIG_DFL);
    ::raise(signal);
    sigset_t this_one;
    ::sigemptyset(&this_one);
    ::sigaddset(&this_one, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &this_one, nullptr);
}

/// Returns the state of its place; null where the path is too long or the list is full.
std::atomic<int> *list_unfinished(const std::string &path) noexcept {
    for (entry &each : entries) {
        int expected = unused;
        if (path.size() >= each.path.size()) return nullptr;
        if (!each.state.compare_exchange_strong(expected, being_written)) continue;
        each.path[path.copy(each.path.data(), path.size())] = '\0';
        each.state = listed;
        while (ending) // the handler may have passed this entry: nothing must be created any more
            ::pause();
        return &each.state;
    }
    return nullptr;
}

} // namespace

void catch_signals() {
    for (const int signal : fatal_signals) {
        struct sigaction action {
        }, before{};
        action.sa_handler = remove_files_and_end;
        action.sa_mask = fatal_set();
        ::sigaction(signal, nullptr, &before);
        // A caller that ignores a signal (nohup) goes on doing so.
        if (before.sa_handler != SIG_IGN) ::sigaction(signal, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

signals_held::signals_held() {
    const sigset_t set = fatal_set();
    ::pthread_sigmask(SIG_BLOCK, &set, &before_);
}

signals_held::~signals_held() {
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

unfinished_file::unfinished_file(std::string path)
    : path_(std::move(path)), listed_(list_unfinished(path_)) {
}

unfinished_file::~unfinished_file() {
    ::unlink(path_.c_str());
    if (listed_ != nullptr) *listed_ = unused;
}

} // namespace tools
