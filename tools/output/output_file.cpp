#include "output/output_file.hpp"

#include "common/counted.hpp"
#include "common/failure.hpp"
#include "common/file_lock.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <random>
#include <sys/sendfile.h>
#include <tuple>

namespace tools {
namespace {

/// Not every kind of file can be synchronised; those that can tell of their errors here.
int sync_to_disk(int descriptor) noexcept {
    return ::fsync(descriptor) == 0 || errno == EINVAL ? 0 : errno;
}

std::string folder_of(const std::string &path) {
    const auto folder = std::filesystem::path(path).parent_path();
    return folder.empty() ? "." : folder.string();
}

/// Unlike the process's number alone it is no other host's on a shared folder.
std::string temporary_name(const std::string &target) {
    static thread_local std::mt19937_64 random(std::random_device{}());
    return folder_of(target)
           + formatted("/.velaenc-%d-%016llx.tmp", ::getpid(),
                       static_cast<unsigned long long>(random()));
}

/// Where nobody has the name. @return 0 or errno, EEXIST where somebody has it
int rename_new(const char *from, const char *to) noexcept {
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // The file system cannot do that; most of those can give a file two names.
    if (::link(from, to) == 0) return 0; // the other one goes as that of an unfinished file
    if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS) return errno;
    struct stat status {};
    if (::lstat(to, &status) == 0) return EEXIST;
    return std::rename(from, to) == 0 ? 0 : errno;
}

} // namespace

output_file::output_file(const std::string &path, const struct stat &input, const output_rules &rules)
    : target_(find_target(path, input, rules)), input_(input), rules_(rules) {
    if (is_direct())
        open_direct();
    else if (is_copied())
        open_nameless();
    else
        open_temporary();
}

bool output_file::is_same(const output_file &other) const noexcept {
    const auto &a = target_.present, &b = other.target_.present;
    if (a && b) return !S_ISCHR(a->st_mode) && is_same_node(*a, *b);
    return !a && !b && is_same_node(target_.folder, other.target_.folder)
           && target_.file == other.target_.file;
}

void output_file::open_direct() {
    handle_ = file_handle(target_.descriptor ? ::fcntl(*target_.descriptor, F_DUPFD_CLOEXEC, 0)
                                             : ::open(target_.path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!handle_.is_open()) cannot_create(errno);
    if (::isatty(handle_.get()))
        throw failure(exit_code::output,
                      target_.name + " is a terminal; name a file or a pipe for the stream");
}

void output_file::open_temporary() {
    // A file without its lock may be taken for one of a killed process and removed at any time.
    do
        create_temporary();
    while (!is_kept());
    if (target_.present) take_protection();
}

bool output_file::is_kept() {
    struct stat status {};
    lock_file(handle_.get(), true);
    keep_open();
    return ::fstat(handle_.get(), &status) != 0 || status.st_nlink > 0;
}

void output_file::keep_open() {
    kept_ = file_handle(::fcntl(handle_.get(), F_DUPFD_CLOEXEC, 0));
    if (!kept_.is_open()) cannot_create(errno);
}

void output_file::create_temporary() {
    temporary_.emplace(temporary_name(target_.path));
    // Until it has the protection of the file that it replaces, the new one is nobody else's.
    const mode_t mode = target_.present ? 0600 : 0666;
    handle_ =
        file_handle(::open(temporary_->path().c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!handle_.is_open()) cannot_create(errno);
}

/// Owner, group and mode as far as the system permits; the mode without what the owner or the group
/// would lend to everybody else.
void output_file::take_protection() noexcept {
    const struct stat &old = *target_.present;
    mode_t mode = old.st_mode & 0777;
    if (::fchown(handle_.get(), old.st_uid, old.st_gid) != 0
        && ::fchown(handle_.get(), static_cast<uid_t>(-1), old.st_gid) != 0)
        mode &= (mode & 07) << 3 | 0707;
    std::ignore = ::fchmod(handle_.get(), mode);
}

void output_file::open_nameless() {
    const char *wish = std::getenv("TMPDIR");
    const std::string folder = wish != nullptr && *wish != '\0' ? wish : "/tmp";
    handle_ = file_handle(::open(folder.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600));
    if (!handle_.is_open())
        throw failure(exit_code::output, "cannot keep " + target_.name + " in " + folder + ": "
                                             + std::strerror(errno)
                                             + "; set TMPDIR to a folder with room");
    keep_open();
}

void output_file::cannot_create(int error) const {
    throw failure(exit_code::output, "cannot create " + target_.name + ": " + explain_errno(error));
}

int output_file::write(std::span<const std::byte> bytes) noexcept {
    while (error_ == 0 && !bytes.empty()) {
        const ssize_t written = ::write(handle_.get(), bytes.data(), bytes.size());
        if (written >= 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) { // a descriptor that somebody else has made non-blocking
            pollfd ready{handle_.get(), POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            error_ = errno;
        }
    }
    return error_;
}

void output_file::rewind() noexcept {
    if (::lseek(handle_.get(), 0, SEEK_SET) != 0 && error_ == 0) error_ = errno;
}

std::size_t output_file::read_back(std::uint64_t offset, std::span<std::byte> room) const {
    std::size_t filled = 0;
    while (filled < room.size()) {
        const ssize_t count = ::pread(kept_.get(), room.data() + filled, room.size() - filled,
                                      static_cast<off_t>(offset + filled));
        if (count == 0) break;
        if (count < 0 && errno != EINTR)
            throw failure(exit_code::output,
                          "cannot read " + target_.name + " back: " + std::strerror(errno));
        filled += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return filled;
}

void output_file::check() const {
    if (error_ != 0)
        throw failure(exit_code::output, "cannot write " + target_.name + ": " + explain_errno(error_));
}

void output_file::close() {
    check();
    if (rules_.sync && !is_direct()) error_ = sync_to_disk(handle_.get());
    if (handle_.close() != 0 && error_ == 0) error_ = errno;
    check();
}

void output_file::publish() {
    if (is_direct()) return;
    if (is_copied()) {
        look_at_target();
        return copy_to_target();
    }
    give_name();
    if (rules_.sync) sync_folder();
}

void output_file::give_name() {
    struct stat written {
    }, named{};
    const std::string &path = temporary_->path();
    if (::fstat(kept_.get(), &written) != 0 || ::lstat(path.c_str(), &named) != 0) cannot_create(errno);
    if (!is_same_node(written, named))
        throw failure(exit_code::output, "cannot create " + target_.name
                                             + ": somebody has put another file"
                                             + " in the place of the unfinished one, " + path);
    if (!target_.present) {
        const int error = rename_new(path.c_str(), target_.path.c_str());
        if (error == 0) return;
        if (error != EEXIST) cannot_create(error);
    }
    look_at_target();
    if (std::rename(path.c_str(), target_.path.c_str()) != 0) cannot_create(errno);
}

/// What has come under the name since the beginning is as much somebody's as what was there.
void output_file::look_at_target() {
    look_again(target_, input_, rules_);
    if (target_.present && !S_ISREG(target_.present->st_mode)) cannot_create(EEXIST);
    has_replaced_ = target_.present && target_.present->st_size > 0 && !rules_.overwrite;
}

void output_file::copy_to_target() {
    const file_handle target(::open(target_.path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (!target.is_open()) cannot_create(errno);
    off_t done = 0;
    ssize_t count;
    do
        count = ::sendfile(target.get(), kept_.get(), &done, INT_MAX);
    while (count > 0 || (count < 0 && errno == EINTR));
    if (count < 0)
        error_ = errno;
    else if (rules_.sync)
        error_ = sync_to_disk(target.get());
    check();
}

/// A folder that cannot be opened for reading has no other way; the name is there all the same.
void output_file::sync_folder() const noexcept {
    const file_handle folder(
        ::open(folder_of(target_.path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ::fsync(folder.get());
}

} // namespace tools
