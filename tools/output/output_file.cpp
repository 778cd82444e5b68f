#include "output/output_file.hpp"

#include "common/failure.hpp"
#include "output/unfinished_files.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <tuple>

namespace tools {
namespace {

bool same_file(const struct stat &a, const struct stat &b) noexcept {
    return S_ISREG(a.st_mode) && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// What is wrong, and what would help.
std::string explain(int error) {
    std::string reason = std::strerror(error);
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return reason + "; make room or write to another place";
    case EPIPE:
        return reason + ": its reader has gone before the end";
    case EFBIG:
        return reason + "; raise the limit of the size of files (ulimit -f) or write to another place";
    default:
        return reason;
    }
}

} // namespace

output_file::output_file(const std::string &path, const struct stat &input)
    : name_(path == "-" ? "standard output" : path), target_(path) {
    struct stat present {};
    const bool standard = path == "-";
    const bool exists =
        (standard ? ::fstat(STDOUT_FILENO, &present) : ::stat(path.c_str(), &present)) == 0;
    if (exists && same_file(input, present))
        throw failure(exit_code::output, name_ + " is the input itself; name another output");
    if (exists && S_ISDIR(present.st_mode))
        throw failure(exit_code::output, name_ + " is a folder; name a file in it");
    if (standard || (exists && !S_ISREG(present.st_mode)))
        open_direct();
    else
        open_temporary(exists ? &present : nullptr);
}

output_file::~output_file() {
    if (temporary_.empty()) return;
    ::unlink(temporary_.c_str());
    forget_unfinished(listed_);
}

void output_file::open_direct() {
    const bool standard = target_ == "-";
    handle_ =
        file_handle(standard ? ::dup(STDOUT_FILENO) : ::open(target_.c_str(), O_WRONLY | O_CLOEXEC));
    if (!handle_.is_open()) cannot_create(errno);
    if (::isatty(handle_.get()))
        throw failure(exit_code::output,
                      name_ + " is a terminal; name a file or a pipe for the stream");
}

void output_file::open_temporary(const struct stat *replaced) {
    if (replaced != nullptr && ::access(target_.c_str(), W_OK) != 0) cannot_create(errno);
    std::error_code unresolved;
    const auto path = std::filesystem::weakly_canonical(std::filesystem::absolute(target_), unresolved);
    if (!unresolved) target_ = path.string();
    const std::string start = (std::filesystem::path(target_).parent_path() / ".velaenc-").string()
                              + std::to_string(::getpid());
    const signals_held until_listed;
    int error = EEXIST;
    for (int i = 0; error == EEXIST && !handle_.is_open(); ++i) {
        temporary_ = start + '-' + std::to_string(i) + ".tmp";
        handle_ =
            file_handle(::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        error = errno;
    }
    if (!handle_.is_open()) {
        temporary_.clear();
        cannot_create(error);
    }
    listed_ = list_unfinished(temporary_);
    if (replaced != nullptr) std::ignore = ::fchmod(handle_.get(), replaced->st_mode & 0777);
}

void output_file::cannot_create(int error) const {
    throw failure(exit_code::output, "cannot create " + name_ + ": " + explain(error));
}

int output_file::write(std::span<const std::byte> bytes) noexcept {
    while (error_ == 0 && !bytes.empty()) {
        const ssize_t written = ::write(handle_.get(), bytes.data(), bytes.size());
        if (written >= 0)
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            error_ = errno;
    }
    return error_;
}

void output_file::check() const {
    if (error_ != 0) throw failure(exit_code::output, "cannot write " + name_ + ": " + explain(error_));
}

void output_file::close() {
    if (handle_.close() != 0 && error_ == 0) error_ = errno;
    check();
}

void output_file::publish() {
    if (is_direct()) return;
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) cannot_create(errno);
    temporary_.clear();
    forget_unfinished(listed_);
}

} // namespace tools
