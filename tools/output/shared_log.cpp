#include "output/shared_log.hpp"

#include "common/failure.hpp"
#include "common/file_lock.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
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

bool is_regular(int descriptor) noexcept {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

shared_log::shared_log(const std::string &path, std::string_view mark)
    : name_(path == "-" ? "standard output" : path),
      handle_(path == "-"
                  ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                  : ::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0666)),
      is_file_(path != "-" && is_regular(handle_.get())) {
    if (!handle_.is_open()) cannot_write();
    if (is_file_) check_kind(mark);
}

void shared_log::check_kind(std::string_view mark) const {
    std::string head(mark.size(), '\0');
    const ssize_t count = ::pread(handle_.get(), head.data(), head.size(), 0);
    if (count < 0) cannot_write();
    head.resize(static_cast<std::size_t>(count));
    if (!mark.starts_with(head))
        throw failure(exit_code::output,
                      name_ + " is no report, and nothing else is added to; name another file");
}

void shared_log::append(std::string line) {
    line += '\n';
    const std::lock_guard one_thread(mutex_);
    std::optional<locked> until_written;
    if (is_file_) {
        until_written.emplace(handle_.get());
        struct stat status {};
        if (!until_written->works() || ::fstat(handle_.get(), &status) != 0) cannot_write();
        char last = '\n';
        if (status.st_size > 0 && ::pread(handle_.get(), &last, 1, status.st_size - 1) != 1)
            cannot_write();
        if (last != '\n') line.insert(0, 1, '\n');
    }
    for (std::string_view left = line; !left.empty();) {
        const ssize_t written = ::write(handle_.get(), left.data(), left.size());
        if (written < 0 && errno != EINTR) cannot_write();
        left.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
}

void shared_log::cannot_write() const {
    throw failure(exit_code::output, "cannot write the report " + name_ + ": " + std::strerror(errno));
}

} // namespace tools
