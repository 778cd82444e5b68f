#include "common/terminal_line.hpp"

#include <cstdio>
#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tools {
namespace {

/// A character in the last column would make many terminals go on in the next line.
std::size_t usable_columns() {
    winsize size{};
    const bool known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? size.ws_col - 1U : 79;
}

/// A terminal that knows no escape codes gets blanks.
bool has_escape_codes() {
    const char *kind = std::getenv("TERM");
    return kind != nullptr && *kind != '\0' && std::string(kind) != "dumb";
}

} // namespace

void terminal_line::show(std::string text) {
    text.resize(std::min(text.size(), usable_columns()));
    erase();
    drawn_ = text.size();
    std::fputs(text.c_str(), stderr);
    std::fflush(stderr);
}

void terminal_line::erase() {
    if (drawn_ == 0) return;
    const std::string blanks(drawn_, ' ');
    std::fputs(has_escape_codes() ? "\r\033[K" : ("\r" + blanks + "\r").c_str(), stderr);
    drawn_ = 0;
}

} // namespace tools
