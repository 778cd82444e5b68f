#include "common/file_lock.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>

namespace tools {
namespace {

int apply(int descriptor, int command, short kind) noexcept {
    struct flock wish {};
    wish.l_type = kind;
    wish.l_whence = SEEK_SET;
    int result;
    do
        result = ::fcntl(descriptor, command, &wish);
    while (result != 0 && errno == EINTR);
    return result;
}

} // namespace

bool lock_file(int descriptor, bool wait) noexcept {
    return apply(descriptor, wait ? F_OFD_SETLKW : F_OFD_SETLK, F_WRLCK) == 0;
}

void unlock_file(int descriptor) noexcept {
    apply(descriptor, F_OFD_SETLK, F_UNLCK);
}

} // namespace tools
