#include "output/abandoned_files.hpp"

#include "common/file_handle.hpp"
#include "common/file_lock.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>

namespace tools {
namespace {

struct closer {
    void operator()(DIR *folder) const noexcept { ::closedir(folder); }
};

} // namespace

void remove_abandoned(const std::string &folder) noexcept {
    const std::unique_ptr<DIR, closer> open(::opendir(folder.c_str()));
    if (!open) return;
    while (const dirent *entry = ::readdir(open.get())) {
        const std::string_view name(entry->d_name);
        if (!name.starts_with(".velaenc-") || !name.ends_with(".tmp")) continue;
        const file_handle file(::openat(::dirfd(open.get()), entry->d_name, O_RDWR | O_CLOEXEC));
        if (file.is_open() && lock_file(file.get(), false))
            ::unlinkat(::dirfd(open.get()), entry->d_name, 0);
    }
}

} // namespace tools
