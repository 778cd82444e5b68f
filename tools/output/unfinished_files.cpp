#include "output/unfinished_files.hpp"

#include <array>
#include <climits>
#include <csignal>
#include <cstddef>
#include <unistd.h>

namespace tools {
namespace {

constexpr std::array fatal_signals{SIGINT, SIGTERM, SIGHUP};

struct entry {
    volatile std::sig_atomic_t listed = 0;
    std::array<char, PATH_MAX> path{};
};

/// Static, because a signal handler can reach nothing else; an audio file and a list of time stamps.
std::array<entry, 2> entries;

void remove_files_and_end(int signal) {
    for (const entry &each : entries)
        if (each.listed) ::unlink(each.path.data());
    // The handler was for one signal only: this one has its ordinary effect, an exit status included.
    ::raise(signal);
}

sigset_t fatal_set() {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : fatal_signals)
        ::sigaddset(&set, signal);
    return set;
}

} // namespace

void catch_signals() {
    for (const int signal : fatal_signals) {
        struct sigaction action {
        }, before{};
        action.sa_handler = remove_files_and_end;
        action.sa_mask = fatal_set();
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        ::sigaction(signal, nullptr, &before);
        // A caller that ignores a signal (nohup) goes on doing so.
        if (before.sa_handler != SIG_IGN) ::sigaction(signal, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

signals_held::signals_held() {
    const sigset_t set = fatal_set();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

signals_held::~signals_held() {
    const sigset_t set = fatal_set();
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

int list_unfinished(const std::string &path) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
        entry &free_one = entries[i];
        if (free_one.listed || path.size() >= free_one.path.size()) continue;
        path.copy(free_one.path.data(), path.size());
        free_one.path[path.size()] = '\0';
        free_one.listed = 1;
        return static_cast<int>(i);
    }
    return -1;
}

void forget_unfinished(int place) noexcept {
    if (place >= 0) entries[static_cast<std::size_t>(place)].listed = 0;
}

} // namespace tools
