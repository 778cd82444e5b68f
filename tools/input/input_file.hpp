// Opening the input: a named file or standard input, and what kind of file it is.
#pragma once

#include "common/file_handle.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <sys/stat.h>

namespace tools {

/// Takes what the user should know although the run goes on.
using note_function = std::function<void(const std::string &)>;

/// What a length in the header of an input counts for.
enum class length_rule {
    promise, ///< less is an error
    hint,    ///< on pipes, whose writers often guess: less is noted
    ignored, ///< the user wants what is there, damaged or not
};

struct input_file {
    file_handle handle;
    std::string name; ///< as messages call it
    struct stat status {};
    note_function on_note = nullptr;

    /// Tells the user something about the input, which is named first.
    void note(const std::string &text) const {
        if (on_note) on_note(name + ' ' + text);
    }

    /// Everything but a regular file is read once and forwards only.
    bool seekable() const noexcept { return S_ISREG(status.st_mode); }
    std::uint64_t size() const noexcept { return static_cast<std::uint64_t>(status.st_size); }
};

/// Refuses an input that is not whole, or just tells the user so where the rule is not so strict.
/// @param text  what is wrong with it
/// @throws failure
void report_incomplete(const input_file &input, const std::string &text, length_rule rule);
void report_missing(const input_file &input, std::uint64_t bytes, length_rule rule);

/// The same of files put one behind another, where the first only is read.
/// @param at  where the second one begins
void report_second(const input_file &input, std::uint64_t at, length_rule rule);

/// @param path  "-" is standard input
/// @throws failure
input_file open_input(const std::string &path);

/// lseek(). @return where the next read begins; a failure is thrown: the sound would be another one
off_t move_in(const input_file &input, off_t offset, int whence);

/// Opens a seekable input again, for another thread. The handle is closed where the system does not let it.
input_file reopen(const input_file &input);

/// Another handle of the same open file, at the same place wherever either moves.
input_file same_file(const input_file &input);

/// Reads what is there, at most `room.size()` bytes. Returns the number of bytes, 0 at the end.
/// @throws failure
std::size_t read_some(const input_file &input, std::span<std::byte> room);

/// Reads at a place of a seekable file, without moving its position. Returns fewer bytes at the end.
/// @throws failure
std::size_t read_at(const input_file &input, std::uint64_t offset, std::span<std::byte> room);

/// Bytes in a nameless temporary file, for those who need them a second time.
class kept_bytes {
  public:
    /// @throws failure
    kept_bytes();
    void append(std::span<const std::byte> bytes) const;

    /// The file as an input, once.
    input_file open_again(const std::string &name);

  private:
    file_handle handle_;
    std::string folder_; ///< that it is in
};

/// Moves `head` and everything that is still to come into a nameless temporary file, for readers that
/// have to seek.
/// @throws failure
input_file spool(input_file input, std::span<const std::byte> head);

} // namespace tools
