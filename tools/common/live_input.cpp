#include "common/live_input.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <tuple>

namespace tools {
namespace {

/// Of the input that the next signal ends; -1: none.
constinit std::atomic<int> waiting_event = -1;

} // namespace

live_input::live_input() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    int none = -1;
    waiting_event.compare_exchange_strong(none, event_.get());
}

live_input::~live_input() {
    int own = event_.get();
    waiting_event.compare_exchange_strong(own, -1);
}

bool live_input::has_ended() const noexcept {
    return wait_for(-1, 0) == outcome::ended; // for nothing else
}

bool live_input::wait_for(int descriptor) const noexcept {
    return wait_for(descriptor, -1) == outcome::readable;
}

live_input::outcome live_input::wait_for(int descriptor, int most) const noexcept {
    std::array<pollfd, 2> states{{{descriptor, POLLIN, 0}, {event_.get(), POLLIN, 0}}};
    int ready;
    while ((ready = ::poll(states.data(), states.size(), most)) < 0 && errno == EINTR) {
    }
    if (ready == 0) return outcome::nothing;
    return states[1].revents == 0 ? outcome::readable : outcome::ended;
}

bool end_live_input(int signal) noexcept {
    if (signal != SIGINT && signal != SIGTERM) return false;
    const int event = waiting_event.exchange(-1);
    if (event < 0) return false;
    const int before = errno;
    const std::uint64_t once = 1;
    std::ignore = ::write(event, &once, sizeof once);
    errno = before;
    return true;
}

} // namespace tools
