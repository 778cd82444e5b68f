#include "velaenc/batch.hpp"

#include "common/counted.hpp"
#include "jobs/batch_progress.hpp"
#include "output/abandoned_files.hpp"
#include "output/unfinished_files.hpp"
#include "velaenc/batch_messages.hpp"
#include "velaenc/batch_report.hpp"
#include "velaenc/encode_file.hpp"
#include "velaenc/sound_plan.hpp"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <filesystem>
#include <mutex>
#include <new>
#include <set>
#include <thread>

namespace tools {
namespace {

/// Keeps what one file has to say, for its line in the report and for the end.
class file_listener final : public run_listener {
  public:
    file_listener(batch_progress::file &shown, std::vector<std::string> &warnings)
        : shown_(shown), warnings_(warnings) {}

    void violation(const std::string &text) override { warnings_.push_back(text); }
    void note(const std::string &text) override { warnings_.push_back(text); }
    void figures(const std::string &) override {}
    progress_listener &begin(int rate, std::optional<std::uint64_t> length) override {
        shown_.sound(rate, length);
        return shown_;
    }
    progress_listener &begin_measuring(int, std::optional<std::uint64_t>) override { return silent_; }

  private:
    /// A file counts once.
    class silent_listener final : public progress_listener {
        void update(std::uint64_t) override {}
    };

    silent_listener silent_;
    batch_progress::file &shown_;
    std::vector<std::string> &warnings_;
};

std::uint64_t bytes_of(const std::vector<batch_file> &files) {
    std::uint64_t bytes = 0;
    for (const auto &file : files)
        bytes += file.bytes;
    return bytes;
}

class batch_run {
  public:
    explicit batch_run(const options &wanted)
        : wanted_(wanted), batch_(*wanted.batch), contents_(list_files(batch_.plan)),
          files_(contents_.files),
          threads_(std::min(static_cast<std::size_t>(wanted.jobs), files_.size())),
          spare_(wanted.jobs - static_cast<int>(threads_)), shown_(files_.size(), bytes_of(files_)),
          messages_(wanted.quiet) {
        if (!batch_.report.empty()) report_.emplace(batch_.report, batch_.stream_options);
        if (report_ && batch_.resume) report_->load();
    }

    exit_code run() {
        std::vector<std::jthread> threads;
        {
            const signals_held inherited; // the main thread looks after them
            for (std::size_t i = 0; i < threads_; ++i)
                threads.emplace_back([this] { work(); });
        }
        watch();
        if (batch_.resume) tidy_up();
        if (fatal_) std::rethrow_exception(fatal_);
        messages_.print_notes();
        if (!wanted_.quiet) print_summary();
        messages_.print_failures();
        return messages_.failures() == 0 ? exit_code::success : exit_code::batch;
    }

  private:
    /// Shows how far the batch is until all threads have ended.
    void watch() {
        std::unique_lock lock(mutex_);
        while (!ended_.wait_for(lock, messages_.interval(), [this] { return running_ == 0; }))
            messages_.show(shown_.line());
    }

    /// One thread: a file after the other, and then its place goes to segments of those still running.
    void work() noexcept {
        try {
            for (auto i = next_++; i < files_.size(); i = next_++)
                handle(files_[i]);
        } catch (...) {
            const std::lock_guard lock(mutex_);
            fatal_ = std::current_exception();
            next_ = files_.size();
        }
        spare_.give(1);
        const std::lock_guard lock(mutex_);
        --running_;
        ended_.notify_one();
    }

    void handle(const batch_file &file) {
        report_entry entry;
        entry.input = file.input;
        entry.output = file.output;
        entry.error = file.error;
        batch_progress::file shown(shown_, file.bytes);
        if (entry.error.empty()) attempt(entry, shown);
        // What was complete is compared with an earlier line where there is one.
        const bool is_new = !entry.was_complete || !report_ || !report_->earlier(entry.output);
        if (report_ && is_new) report_->add(entry);
        if (entry.was_complete && is_new) ++half_known_;
        if (!entry.result)
            messages_.failed(file.input, entry.error);
        else
            messages_.noted(file.input, entry.warnings);
        if (entry.was_complete) ++complete_;
        shown.end(entry.was_complete);
    }

    void attempt(report_entry &entry, batch_progress::file &shown) {
        options wanted = wanted_;
        wanted.input = entry.input;
        wanted.output = entry.output;
        try {
            const auto before = report_ ? report_->earlier(entry.output) : std::nullopt;
            if (batch_.resume && (!before || before->same_options))
                entry.result = find_complete(wanted, before ? before->frames : std::nullopt);
            entry.was_complete = entry.result.has_value();
            if (entry.was_complete) return;
            std::filesystem::create_directories(std::filesystem::path(entry.output).parent_path());
            file_listener listener(shown, entry.warnings);
            entry.result = encode_file(wanted, listener, &spare_);
            if (const auto &clipped = entry.result->clipped; clipped.samples != 0)
                entry.warnings.push_back(clip_text(clipped));
        } catch (const std::bad_alloc &) {
            entry.error = "memory is out";
        } catch (const std::filesystem::filesystem_error &error) {
            entry.error =
                "cannot create the folder " + error.path1().string() + ": " + error.code().message();
        } catch (const failure &error) {
            entry.error = error.what();
            for (auto warning = entry.warnings.rbegin();
                 error.code() == exit_code::rules && warning != entry.warnings.rend(); ++warning)
                entry.error.insert(0, *warning + "; ");
        }
    }

    /// What a run that was killed has left behind.
    void tidy_up() const {
        std::set<std::filesystem::path> folders;
        for (const auto &file : files_)
            if (file.error.empty()) folders.insert(std::filesystem::path(file.output).parent_path());
        for (const auto &folder : folders)
            remove_abandoned(folder);
    }

    void print_summary() {
        if (half_known_ > 0)
            messages_.say("note: " + counted(half_known_.load(), "complete file") + " without a line of"
                          + " an earlier --report: what no header shows (--gain, --align, --start,"
                            " --model, ...) is not compared");
        const std::size_t failed = messages_.failures(), encoded = files_.size() - failed - complete_;
        std::string text =
            counted(files_.size(), "file") + ": " + std::to_string(encoded) + " encoded, ";
        if (batch_.resume) text += std::to_string(complete_) + " complete before, ";
        text += std::to_string(failed) + " failed";
        if (contents_.others > 0) text += ", " + counted(contents_.others, "other") + " left out";
        if (contents_.linked_folders > 0)
            text += ", " + counted(contents_.linked_folders, "linked folder") + " not entered";
        messages_.say(text + "; " + shown_.totals());
    }

    const options &wanted_;
    const batch_options &batch_;
    batch_contents contents_;
    const std::vector<batch_file> &files_;
    std::size_t threads_;
    thread_budget spare_;
    batch_progress shown_;
    batch_messages messages_;
    std::optional<batch_report> report_;
    std::atomic<std::size_t> next_ = 0, complete_ = 0;
    std::atomic<std::size_t> half_known_ = 0; ///< complete, by nothing but what the output shows

    std::mutex mutex_; ///< of the members below
    std::condition_variable ended_;
    std::size_t running_ = threads_;
    std::exception_ptr fatal_; ///< what stops the whole batch
};

} // namespace

exit_code run_batch(const options &wanted) {
    return batch_run(wanted).run();
}

} // namespace tools
