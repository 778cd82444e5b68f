/* Preloaded into velaenc: from the FAULT_AT-th call of FAULT_CALL on, that one only, or every FAULT_EVERY-th fails with
 * FAULT_ERRNO; 0 stands for a short one (half of the bytes) where there is such a thing. The first fault leaves the file
 * FAULT_MARK, so that the test knows when it has passed the last call. Neither the tools nor the libraries behind them
 * map files; the C library maps large blocks, which stand for mmap. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#define REAL(name) ((__typeof__(&(name)))dlsym(RTLD_NEXT, #name))

static int calls;

static int number(const char *name) {
    const char *text = getenv(name);
    return text != NULL ? atoi(text) : 0;
}

static int fails(const char *name) {
    const char *wanted = getenv("FAULT_CALL");
    if (wanted == NULL || strcmp(wanted, name) != 0) return 0;
    const int call = __atomic_add_fetch(&calls, 1, __ATOMIC_SEQ_CST);
    if (number("FAULT_EVERY") > 0 && call % number("FAULT_EVERY") != 0) return 0;
    if (call < number("FAULT_AT") || (call > number("FAULT_AT") && number("FAULT_ON") == 0)) return 0;
    int (*real_open)(const char *, int, ...) =
        (int (*)(const char *, int, ...))dlsym(RTLD_NEXT, "open");
    REAL(close)(real_open(getenv("FAULT_MARK"), O_CREAT | O_WRONLY, 0600));
    errno = number("FAULT_ERRNO");
    return 1;
}

#define CREATES(flags) (((flags) & (O_CREAT | __O_TMPFILE)) != 0)

int open(const char *path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    const mode_t mode = CREATES(flags) ? va_arg(more, mode_t) : 0;
    va_end(more);
    return fails("open") ? -1 : REAL(open)(path, flags, mode);
}
ssize_t read(int file, void *bytes, size_t size) {
    const int failed = fails("read");
    if (failed && errno != 0) return -1;
    return REAL(read)(file, bytes, failed ? (size + 1) / 2 : size);
}
ssize_t pread(int file, void *bytes, size_t size, off_t at) {
    const int failed =
        fails("read") || ((fcntl(file, F_GETFL) & O_ACCMODE) == O_RDWR && fails("readback"));
    if (failed && errno != 0) return -1;
    return REAL(pread)(file, bytes, failed ? (size + 1) / 2 : size, at);
}
ssize_t write(int file, const void *bytes, size_t size) {
    if (size > 4096 && fails("corrupt")) { /* the later half is that of another place */
        static char other[1 << 22];
        memcpy(other, bytes, size < sizeof other ? size : sizeof other);
        memset(other + size / 2, 0x55, size / 4);
        return REAL(write)(file, other, size < sizeof other ? size : sizeof other);
    }
    const int failed = file != STDERR_FILENO && fails("write");
    if (failed && errno != 0) return -1;
    return REAL(write)(file, bytes, failed ? (size + 1) / 2 : size);
}
ssize_t pwrite(int file, const void *bytes, size_t size, off_t at) {
    const int failed = fails("write");
    if (failed && errno != 0) return -1;
    return REAL(pwrite)(file, bytes, failed ? (size + 1) / 2 : size, at);
}
off_t lseek(int file, off_t offset, int whence) {
    return fails("lseek") ? -1 : REAL(lseek)(file, offset, whence);
}
int close(int file) {
    const int failed = file > STDERR_FILENO && fails("close"), error = errno;
    const int result = REAL(close)(file);
    errno = error;
    return failed ? -1 : result;
}
#ifndef HAS_OWN_MALLOC // a sanitizer takes back only what is its own
extern void *__libc_malloc(size_t size);
void *malloc(size_t size) {
    return size >= 1 << 15 && fails("mmap") ? NULL : __libc_malloc(size);
}
#endif
int pthread_create(pthread_t *thread, const pthread_attr_t *how, void *(*run)(void *), void *of) {
    return fails("pthread_create") ? EAGAIN : REAL(pthread_create)(thread, how, run, of);
}
int renameat2(int in, const char *from, int to_in, const char *to, unsigned flags) {
    if (fails("rename") || fails("renameat2")) return -1;
    const char *wanted = getenv("FAULT_CALL");
    if (wanted != NULL && strcmp(wanted, "link") == 0) { /* which comes after that */
        errno = EINVAL;
        return -1;
    }
    return REAL(renameat2)(in, from, to_in, to, flags);
}
int rename(const char *from, const char *to) {
    return fails("rename") ? -1 : REAL(rename)(from, to);
}
int link(const char *from, const char *to) {
    return fails("link") ? -1 : REAL(link)(from, to);
}
int fsync(int file) {
    return fails("fsync") ? -1 : REAL(fsync)(file);
}
int fstat(int file, struct stat *status) {
    return fails("fstat") ? -1 : REAL(fstat)(file, status);
}

/* The names that programs with large files are linked to. */
int open64(const char *path, int flags, ...) __attribute__((alias("open")));
ssize_t pread64(int file, void *bytes, size_t size, off64_t at) __attribute__((alias("pread")));
ssize_t pwrite64(int file, const void *bytes, size_t size, off64_t at) __attribute__((alias("pwrite")));
off64_t lseek64(int file, off64_t offset, int whence) __attribute__((alias("lseek")));
