#include "common/child_process.hpp"

#include "common/printable.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <vector>

namespace tools {
namespace {

constexpr int handed_descriptor = 3;

void check_start(int error) {
    if (error != 0) throw std::system_error(error, std::generic_category());
}

/// Descriptors of the child, by number.
class child_files {
  public:
    child_files() { check_start(::posix_spawn_file_actions_init(&actions_)); }
    ~child_files() { ::posix_spawn_file_actions_destroy(&actions_); }
    child_files(const child_files &) = delete;
    child_files &operator=(const child_files &) = delete;

    void set(int descriptor, int own) {
        check_start(::posix_spawn_file_actions_adddup2(&actions_, own, descriptor));
    }
    void set(int descriptor, const char *path) {
        check_start(::posix_spawn_file_actions_addopen(&actions_, descriptor, path, O_RDONLY, 0));
    }
    const posix_spawn_file_actions_t *get() const noexcept { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_{};
};

/// A process group of its own, and signals as they are at the start of a program.
class child_attributes {
  public:
    child_attributes() {
        check_start(::posix_spawnattr_init(&attributes_));
        sigset_t none, all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &all);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK
                                                     | POSIX_SPAWN_SETSIGDEF);
    }
    ~child_attributes() { ::posix_spawnattr_destroy(&attributes_); }
    child_attributes(const child_attributes &) = delete;
    child_attributes &operator=(const child_attributes &) = delete;

    const posix_spawnattr_t *get() const noexcept { return &attributes_; }

  private:
    posix_spawnattr_t attributes_{};
};

} // namespace

child_process::child_process(std::span<const std::string> words, int file)
    : errors_(::memfd_create("errors", MFD_CLOEXEC)) {
    std::array<int, 2> pipe;
    if (!errors_.is_open() || ::pipe2(pipe.data(), O_CLOEXEC) != 0) check_start(errno);
    output_ = file_handle(pipe[0]);
    const file_handle inlet(pipe[1]);
    child_files files;
    // First, since the others may lie where it goes.
    file_handle moved(file < 0 ? -1 : ::fcntl(file, F_DUPFD_CLOEXEC, handed_descriptor + 1));
    file_handle out(::fcntl(inlet.get(), F_DUPFD_CLOEXEC, handed_descriptor + 1));
    file_handle errors(::fcntl(errors_.get(), F_DUPFD_CLOEXEC, handed_descriptor + 1));
    if ((file >= 0 && !moved.is_open()) || !out.is_open() || !errors.is_open()) check_start(errno);
    files.set(STDIN_FILENO, "/dev/null");
    files.set(STDOUT_FILENO, out.get());
    files.set(STDERR_FILENO, errors.get());
    if (file >= 0) files.set(handed_descriptor, moved.get());
    std::vector<std::string> own(words.begin(), words.end());
    std::vector<char *> arguments;
    arguments.reserve(own.size() + 1);
    for (auto &word : own)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const child_attributes attributes;
    check_start(
        ::posix_spawnp(&id_, arguments[0], files.get(), attributes.get(), arguments.data(), environ));
}

child_process::~child_process() {
    if (!status_) ::kill(id_, SIGKILL);
    wait();
}

int child_process::wait() noexcept {
    if (status_) return *status_;
    int status = 0;
    while (::waitpid(id_, &status, 0) < 0 && errno == EINTR) {
    }
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return *status_;
}

std::string child_process::last_words(std::string_view beside) const {
    struct stat status {};
    std::array<char, 1000> text{};
    if (::fstat(errors_.get(), &status) != 0) return "";
    const auto start = std::max<off_t>(status.st_size - static_cast<off_t>(text.size()), 0);
    const ssize_t count = ::pread(errors_.get(), text.data(), text.size(), start);
    std::string_view words(text.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    while (!words.empty()) {
        const auto end = words.find_last_of("\r\n");
        const bool is_first = end == words.npos;
        const auto line = is_first ? words : words.substr(end + 1);
        if (!line.empty() && line != beside) return printable(line);
        words = words.substr(0, is_first ? 0 : end);
    }
    return "";
}

} // namespace tools
