#include "output/shared_log.hpp"

#include "common/failure.hpp"
#include "common/file_lock.hpp"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace tools {
namespace {

class locked {
  public:
    explicit locked(int descriptor) : descriptor_(descriptor), works_(lock_file(descriptor, true)) {}
    ~locked() { unlock_file(descriptor_); }
    locked(const locked &) = delete;
    locked &operator=(const locked &) = delete;
    bool works() const noexcept { return works_; }

  private:
    int descriptor_;
    bool works_;
};

} // namespace

shared_log::shared_log(const std::string &path)
    : path_(path), handle_(::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666)) {
    if (!handle_.is_open()) cannot_write();
}

void shared_log::append(std::string line) {
    line += '\n';
    const std::lock_guard one_thread(mutex_);
    const locked until_written(handle_.get());
    struct stat status {};
    if (!until_written.works() || ::fstat(handle_.get(), &status) != 0) cannot_write();
    char last = '\n';
    if (status.st_size > 0 && ::pread(handle_.get(), &last, 1, status.st_size - 1) != 1) cannot_write();
    if (last != '\n') line.insert(0, 1, '\n');
    const ssize_t written = ::write(handle_.get(), line.data(), line.size());
    if (written != static_cast<ssize_t>(line.size())) {
        if (written >= 0) errno = ENOSPC;
        cannot_write();
    }
}

void shared_log::cannot_write() const {
    throw failure(exit_code::output, "cannot write the report " + path_ + ": " + std::strerror(errno));
}

} // namespace tools
