#include "output/output_target.hpp"

#include "common/failure.hpp"
#include "common/file_handle.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <filesystem>

namespace tools {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void cannot_create(const output_target &target, int error) {
    throw failure(exit_code::output, "cannot create " + target.name + ": " + explain_errno(error));
}

/// The names by which a process reaches its own descriptors. Opening one anew would start at the
/// file's beginning, and a name beside it is no name for it.
std::optional<int> named_descriptor(const std::string &path) {
    if (path == "-" || path == "/dev/stdout") return STDOUT_FILENO;
    if (path == "/dev/stderr") return STDERR_FILENO;
    const auto own = "/proc/" + std::to_string(::getpid()) + "/fd/";
    for (const std::string &folder : {std::string("/dev/fd/"), std::string("/proc/self/fd/"), own}) {
        int number;
        if (!path.starts_with(folder)) continue;
        const char *end = path.data() + path.size();
        const auto read = std::from_chars(path.data() + folder.size(), end, number);
        if (read.ec == std::errc() && read.ptr == end) return number;
    }
    return std::nullopt;
}

/// Follows links as far as they lead: a link to nothing names the file that it would create.
void follow_links(output_target &target) {
    for (int links = 0; !named_descriptor(target.path); ++links) {
        std::error_code none;
        const fs::path next = fs::read_symlink(target.path, none);
        if (none) return;
        if (links == 40) cannot_create(target, ELOOP);
        target.path = (fs::path(target.path).parent_path() / next).string();
    }
}

bool is_own_file(const std::string &path, const output_rules &rules) {
    const file_handle file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    return file.is_open() && rules.is_own([&](std::uint64_t offset, std::span<std::byte> room) {
        const ssize_t count = ::pread(file.get(), room.data(), room.size(), static_cast<off_t>(offset));
        return static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    });
}

void check_replaceable(const output_target &target, const output_rules &rules) {
    if (rules.no_clobber)
        throw failure(exit_code::output,
                      target.name + " exists, and --no-clobber keeps it; name another output");
    if (::access(target.path.c_str(), W_OK) != 0) cannot_create(target, errno);
    if (rules.overwrite || target.present->st_size == 0) return;
    if (!is_own_file(target.path, rules))
        throw failure(exit_code::output, target.name + " exists and is not " + rules.own
                                             + "; name another output, or replace it with --overwrite");
}

[[noreturn]] void is_folder(const output_target &target) {
    throw failure(exit_code::output, target.name + " is a folder; name a file in it");
}

void check_present(const output_target &target, const struct stat &input) {
    if (S_ISREG(input.st_mode) && is_same_node(input, *target.present))
        throw failure(exit_code::output, target.name + " is the input itself; name another output");
    if (S_ISDIR(target.present->st_mode)) is_folder(target);
}

/// Whether a file can be created in the folder and given the target's name.
bool takes_new_file(const output_target &target, const std::string &folder) {
    const struct stat &status = target.folder;
    if (::access(folder.c_str(), W_OK | X_OK) != 0) return false;
    const uid_t user = ::geteuid();
    // Where users share a folder, only its owner and the file's may take a file's name away.
    const bool shared = (status.st_mode & S_ISVTX) != 0 && user != 0 && user != status.st_uid;
    return !shared || !target.present || target.present->st_uid == user;
}

void choose_way(output_target &target) {
    if (target.present && !S_ISREG(target.present->st_mode)) {
        target.way = output_way::direct;
        return;
    }
    const fs::path path(target.path);
    const std::string folder = path.has_parent_path() ? path.parent_path().string() : ".";
    if (::stat(folder.c_str(), &target.folder) != 0) cannot_create(target, errno);
    target.file = path.filename().string();
    if (takes_new_file(target, folder)) return;
    if (!target.present) cannot_create(target, EACCES);
    target.way = output_way::copied;
}

} // namespace

bool begins_with(const file_view &file, std::string_view text) {
    std::string head(text.size(), '\0');
    return file(0, std::as_writable_bytes(std::span(head))) == text.size() && head == text;
}

bool is_same_node(const struct stat &a, const struct stat &b) noexcept {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

output_target find_target(const std::string &path, const struct stat &input,
                          const output_rules &rules) {
    output_target target;
    target.name = path == "-" ? "standard output" : path;
    target.path = path;
    follow_links(target);
    target.descriptor = named_descriptor(target.path);
    if (target.descriptor) {
        target.way = output_way::direct;
        if (::fstat(*target.descriptor, &target.present.emplace()) != 0) cannot_create(target, errno);
        check_present(target, input);
        return target;
    }
    look_again(target, input, rules);
    if (path.ends_with('/')) is_folder(target);
    choose_way(target);
    return target;
}

void look_again(output_target &target, const struct stat &input, const output_rules &rules) {
    if (::stat(target.path.c_str(), &target.present.emplace()) != 0) {
        target.present.reset();
        if (errno != ENOENT) cannot_create(target, errno);
        return;
    }
    check_present(target, input);
    if (S_ISREG(target.present->st_mode)) check_replaceable(target, rules);
}

void occupy_closed_descriptors() {
    // For reading only: what is written to it fails as it would without.
    int opened;
    do
        opened = ::open("/dev/null", O_RDONLY); // NOLINT(android-cloexec-open): children need them too
    while (opened >= 0 && opened <= STDERR_FILENO);
    ::close(opened);
}

std::string explain_errno(int error) {
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

} // namespace tools
