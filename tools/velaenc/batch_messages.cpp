#include "velaenc/batch_messages.hpp"

#include "common/counted.hpp"
#include "common/printable.hpp"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace tools {
namespace {

constexpr std::size_t most_notes = 20;

} // namespace

batch_messages::batch_messages(bool quiet) : quiet_(quiet), terminal_(::isatty(STDERR_FILENO) != 0) {
}

std::chrono::milliseconds batch_messages::interval() const noexcept {
    using namespace std::chrono_literals;
    return terminal_ ? 200ms : 10s;
}

void batch_messages::show(const std::string &line) {
    if (quiet_) return;
    const std::lock_guard lock(mutex_);
    if (terminal_)
        line_.show(line);
    else
        std::fprintf(stderr, "%s\n", line.c_str());
}

void batch_messages::say(const std::string &text) {
    const std::lock_guard lock(mutex_);
    line_.erase();
    std::fprintf(stderr, "velaenc: %s\n", printable(text).c_str());
}

void batch_messages::failed(const std::string &file, const std::string &why) {
    // Some reasons are sentences about the file, which begin with its name.
    const bool named = why.starts_with(file + ' ');
    say(why.find(file) != std::string::npos ? why : file + ": " + why);
    const std::lock_guard lock(mutex_);
    failures_.emplace_back(file, named ? why.substr(file.size() + 1) : why);
}

void batch_messages::noted(const std::string &file, const std::vector<std::string> &notes) {
    const std::lock_guard lock(mutex_);
    for (const auto &text : notes) {
        auto &known = notes_[text];
        if (known.files++ == 0) known.first = file;
    }
}

void batch_messages::print_notes() {
    if (quiet_) return;
    std::size_t printed = 0;
    for (const auto &[text, known] : notes_) {
        if (++printed > most_notes) continue;
        std::string line = "note: ";
        line.append(text).append(" (").append(known.first);
        if (known.files > 1)
            line.append(" and ").append(std::to_string(known.files - 1)).append(" more");
        say(line.append(")"));
    }
    if (printed > most_notes)
        say("note: " + counted(printed - most_notes, "more kind") + " of notes; --report lists them");
}

void batch_messages::print_failures() {
    if (failures_.empty()) return;
    std::ranges::sort(failures_);
    std::size_t width = 0;
    for (const auto &[file, why] : failures_)
        width = std::max(width, std::min<std::size_t>(printable(file).size(), 40));
    say(counted(failures_.size(), "file") + " failed:");
    for (const auto &[file, why] : failures_)
        std::fprintf(stderr, "  %-*s  %s\n", static_cast<int>(width), printable(file).c_str(),
                     printable(why).c_str());
}

} // namespace tools
