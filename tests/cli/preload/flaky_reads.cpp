// Loaded before the C library: every n-th read fails with an error of choice, FLAKY_READS="ERRNO N".
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/syscall.h>
#include <unistd.h>

static bool fails() {
    static int calls = 0, error = 0, period = 1;
    if (error == 0) std::sscanf(std::getenv("FLAKY_READS"), "%d %d", &error, &period);
    errno = error;
    return ++calls % period == 0;
}

extern "C" __attribute__((visibility("default"))) ssize_t read(int file, void *room, size_t size) {
    return fails() ? -1 : syscall(SYS_read, file, room, size);
}

extern "C" __attribute__((visibility("default"))) ssize_t pread(int file, void *room, size_t size,
                                                                off_t offset) {
    return fails() ? -1 : syscall(SYS_pread64, file, room, size, offset);
}
