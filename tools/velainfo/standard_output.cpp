#include "velainfo/standard_output.hpp"

#include "common/failure.hpp"
#include "output/output_target.hpp"

#include <cerrno>
#include <unistd.h>

namespace tools {

void standard_output::print(std::string_view text) {
    constexpr std::size_t piece = 1 << 16;
    waiting_ += text;
    if (waiting_.size() >= piece) flush();
}

void standard_output::flush() {
    std::string_view rest = waiting_;
    while (!rest.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, rest.data(), rest.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0)
            throw failure(exit_code::output,
                          errno == EPIPE ? std::string()
                                         : "cannot write to standard output: " + explain_errno(errno));
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    waiting_.clear();
}

} // namespace tools
