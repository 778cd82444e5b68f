// An output that appears under its name only when it is complete.
#pragma once

#include "common/file_handle.hpp"
#include "output/output_target.hpp"
#include "output/unfinished_files.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace tools {

/// A regular file is written under a temporary name beside its target; open descriptors, pipes and
/// devices are written directly. Unless published, the temporary file is removed by the destructor or
/// by a signal.
class output_file {
  public:
    /// @param path   "-" is standard output
    /// @param input  status of the input, which must not be the same file
    /// @throws failure
    output_file(const std::string &path, const struct stat &input, const output_rules &rules);
    output_file(const output_file &) = delete;
    output_file &operator=(const output_file &) = delete;

    /// As messages call it.
    const std::string &name() const noexcept { return target_.name; }

    /// Somebody may be waiting at the other end.
    bool is_direct() const noexcept { return target_.way == output_way::direct; }

    /// The file is replaced at the end by copying, since its folder takes no new one.
    bool is_copied() const noexcept { return target_.way == output_way::copied; }

    /// Somebody's file is gone now, as the rules allow unasked.
    bool has_replaced() const noexcept { return has_replaced_; }

    /// Both write to the same file.
    bool is_same(const output_file &other) const noexcept;

    /// Writes all bytes. Returns 0 or errno; after an error nothing is written any more.
    int write(std::span<const std::byte> bytes) noexcept;

    /// Goes on at the beginning, over what is there, which a direct output does not allow.
    void rewind() noexcept;

    /// Reads what was written and has no name yet, at an offset; fewer bytes come at the end. Any thread may call it.
    /// Not for direct outputs.
    /// @throws failure
    std::size_t read_back(std::uint64_t offset, std::span<std::byte> room) const;

    /// Reports the errors that come late, then gives the file its name. To publish several files
    /// together close all of them first.
    /// @throws failure
    void close();
    void publish();

    /// @throws failure when an earlier write failed
    void check() const;

  private:
    void open_direct();
    void open_temporary();
    void create_temporary();
    bool is_kept();
    void keep_open();
    void open_nameless();
    void take_protection() noexcept;
    void give_name();
    void look_at_target();
    void copy_to_target();
    void sync_folder() const noexcept;
    [[noreturn]] void cannot_create(int error) const;

    output_target target_;
    struct stat input_;
    output_rules rules_;
    bool has_replaced_ = false;
    std::optional<unfinished_file> temporary_; ///< where it has a name
    file_handle handle_;
    file_handle kept_; ///< the same file, not a direct one; locked where it has a name
    int error_ = 0;
};

} // namespace tools
