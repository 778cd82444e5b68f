#include "input/input_file.hpp"

#include "common/failure.hpp"
#include "input/pcm_source.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <vector>

namespace tools {
namespace {

[[noreturn]] void unreadable(const std::string &name, int error) {
    throw failure(exit_code::input, "cannot read " + name + ": " + std::strerror(error));
}

[[noreturn]] void cannot_spool(const std::string &folder, int error) {
    throw failure(exit_code::output,
                  "cannot keep the piped input in " + folder + ": " + std::strerror(error)
                      + "; set TMPDIR to a folder with room, or give the input as a file");
}

} // namespace

void report_incomplete(const input_file &input, const std::string &text, length_rule rule) {
    if (rule == length_rule::promise)
        throw failure(
            exit_code::input,
            input.name + ' ' + text
                + "; the complete file is needed, or velaenc --ignore-length for what is there");
    input.note(text);
}

void report_missing(const input_file &input, std::uint64_t bytes, length_rule rule) {
    report_incomplete(input,
                      "is truncated: its header promises " + std::to_string(bytes)
                          + " more bytes than the " + std::to_string(input.size()) + " that are there",
                      rule);
}

void report_second(const input_file &input, std::uint64_t at, length_rule rule) {
    const std::string text = " has another stream behind the first, from byte " + std::to_string(at)
                             + " on, which is not read";
    if (rule == length_rule::promise)
        throw failure(exit_code::input,
                      input.name + text
                          + "; encode each by itself, or the first with velaenc --ignore-length");
    input.note(text.substr(1));
}

input_file open_input(const std::string &path) {
    input_file input;
    const bool standard = path == "-";
    input.name = standard ? "standard input" : path;
    do // a pipe with a name waits for its writer
        input.handle =
            file_handle(standard ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    while (!input.handle.is_open() && errno == EINTR);
    if (!input.handle.is_open() || ::fstat(input.handle.get(), &input.status) != 0)
        unreadable(input.name, errno);
    if (S_ISDIR(input.status.st_mode))
        throw failure(exit_code::input, path + " is a folder; name an audio file in it");
    if (::isatty(input.handle.get()))
        throw failure(exit_code::input,
                      input.name + " is a terminal; pipe audio into it or name a file");
    if (input.seekable() && input.size() == 0)
        throw failure(exit_code::input, input.name + " is empty (0 bytes); an audio file is needed");
    return input;
}

off_t move_in(const input_file &input, off_t offset, int whence) {
    const off_t place = ::lseek(input.handle.get(), offset, whence);
    if (place < 0) unreadable(input.name, errno);
    return place;
}

input_file reopen(const input_file &input) {
    // By its descriptor: the name may stand for another file by now, or for none.
    const std::string path = "/proc/self/fd/" + std::to_string(input.handle.get());
    return {file_handle(::open(path.c_str(), O_RDONLY | O_CLOEXEC)), input.name, input.status};
}

input_file same_file(const input_file &input) {
    input_file again{file_handle(::fcntl(input.handle.get(), F_DUPFD_CLOEXEC, 0)), input.name,
                     input.status, input.on_note};
    if (!again.handle.is_open()) unreadable(input.name, errno);
    return again;
}

std::size_t read_some(const input_file &input, std::span<std::byte> room) {
    for (;;) {
        const ssize_t count = ::read(input.handle.get(), room.data(), room.size());
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno == EAGAIN) { // somebody made the pipe non-blocking
            pollfd state{input.handle.get(), POLLIN, 0};
            ::poll(&state, 1, -1);
        } else if (errno != EINTR) {
            unreadable(input.name, errno);
        }
    }
}

std::size_t read_at(const input_file &input, std::uint64_t offset, std::span<std::byte> room) {
    std::size_t filled = 0;
    while (filled < room.size()) {
        const ssize_t count = ::pread(input.handle.get(), room.data() + filled, room.size() - filled,
                                      static_cast<off_t>(offset + filled));
        if (count == 0) break;
        if (count < 0 && errno != EINTR) unreadable(input.name, errno);
        filled += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return filled;
}

kept_bytes::kept_bytes() {
    const char *wish = std::getenv("TMPDIR");
    folder_ = wish != nullptr && *wish != '\0' ? wish : "/tmp";
    std::string path = folder_ + "/velaenc-XXXXXX";
    handle_ = file_handle(::mkostemp(path.data(), O_CLOEXEC));
    if (!handle_.is_open()) cannot_spool(folder_, errno);
    ::unlink(path.c_str());
}

void kept_bytes::append(std::span<const std::byte> bytes) const {
    while (!bytes.empty()) {
        const ssize_t written = ::write(handle_.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) cannot_spool(folder_, errno);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
}

input_file kept_bytes::open_again(const std::string &name) {
    input_file input{std::move(handle_), name};
    move_in(input, 0, SEEK_SET);
    if (::fstat(input.handle.get(), &input.status) != 0) unreadable(name, errno);
    return input;
}

input_file spool(input_file input, std::span<const std::byte> head) {
    kept_bytes kept;
    kept.append(head);
    std::vector<std::byte> block(block_bytes);
    while (const std::size_t count = read_some(input, block))
        kept.append(std::span(block).first(count));
    input_file spooled = kept.open_again(input.name);
    spooled.on_note = input.on_note;
    return spooled;
}

} // namespace tools
