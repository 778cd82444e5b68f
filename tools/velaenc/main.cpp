// velaenc: the order of a run, from the command line to the exit code.

#include "common/counted.hpp"
#include "common/failure.hpp"
#include "common/printable.hpp"
#include "jobs/progress.hpp"
#include "output/output_target.hpp"
#include "output/unfinished_files.hpp"
#include "settings/record.hpp"
#include "velaenc/batch.hpp"
#include "velaenc/encode_file.hpp"
#include "velaenc/options.hpp"
#include "velaenc/sound_plan.hpp"

#include <cstdio>
#include <malloc.h>
#include <new>
#include <unistd.h>

namespace tools {
namespace {

void say(const std::string &message) {
    std::fprintf(stderr, "velaenc: %s\n", printable(message).c_str());
}

/// A terminal shows how far the encode is; notes are said at once.
class single_run final : public run_listener {
  public:
    explicit single_run(bool quiet) : quiet_(quiet) {}

    void violation(const std::string &text) override { say(text); }

    void note(const std::string &text) override {
        if (shown_) shown_->clear();
        if (!quiet_) say("note: " + text);
    }

    progress_listener &begin_measuring(int rate, std::optional<std::uint64_t> length) override {
        return begin(rate, length);
    }

    void figures(const std::string &text) override { note(text); }

    progress_listener &begin(int rate, std::optional<std::uint64_t> length) override {
        return shown_.emplace(rate, length, !quiet_ && ::isatty(STDERR_FILENO));
    }

    void print_statistics(const file_result &done) {
        const double speed = shown_->speed();
        shown_.reset();
        if (quiet_) return;
        std::fprintf(stderr, "velaenc: %s, %s, %d kbit/s, %.1f x real time\n",
                     counted(done.frames, "frame").c_str(), clock_text(done.seconds(), 3).c_str(),
                     kbit_of(done.settings), speed);
        if (done.clipped.samples != 0) say("warning: " + clip_text(done.clipped));
    }

  private:
    bool quiet_;
    std::optional<progress> shown_;
};

exit_code run(const options &wanted) {
    if (wanted.batch) return run_batch(wanted);
    single_run listener(wanted.quiet);
    listener.print_statistics(encode_file(wanted, listener));
    return exit_code::success;
}

exit_code run_safely(int argc, char **argv) {
    try {
        const auto wanted = read_options(argc, argv);
        return wanted ? run(*wanted) : exit_code::success;
    } catch (const failure &error) {
        say(error.what());
        return error.code();
    } catch (const std::bad_alloc &) {
        say("memory is out");
    } catch (const std::exception &error) {
        say(std::string("internal error: ") + error.what());
    }
    return exit_code::internal;
}

} // namespace
} // namespace tools

int main(int argc, char **argv) {
    tools::occupy_closed_descriptors();
    tools::catch_signals();
    // What one file of a batch has used serves the next one: pages given back and asked for again cost two
    // threads more than encoding does.
    ::mallopt(M_MMAP_THRESHOLD, 32 << 20);
    ::mallopt(M_TRIM_THRESHOLD, 64 << 20);
    ::mallopt(M_TOP_PAD, 4 << 20);
    return static_cast<int>(tools::run_safely(argc, argv));
}
