#include "velaenc/encode_file.hpp"

#include "check/kept_source.hpp"
#include "common/failure.hpp"
#include "input/sound_files.hpp"
#include "jobs/encode_loop.hpp"
#include "jobs/parallel_loop.hpp"
#include "output/timestamp_list.hpp"
#include "output/wave_container.hpp"
#include "velaenc/check_text.hpp"
#include "velaenc/finished_stream.hpp"
#include "velaenc/id3_tag.hpp"
#include "velaenc/output_files.hpp"
#include "velaenc/prepared_input.hpp"
#include "velaenc/stream_settings.hpp"
#include "velaenc/trace_file.hpp"

#include <algorithm>

namespace tools {
namespace {

std::uint64_t frame_samples(const mpeg_a_settings &settings) noexcept {
    return static_cast<std::uint64_t>(samples_of_frame(settings));
}

/// A name that promises another format than the file will have.
void note_name(const options &wanted, const mpeg_a_settings &settings, run_listener &listener) {
    struct kind {
        const char *name, *usual;
        std::vector<std::string> extensions;
    };
    static const kind kinds[] = {{"a WAV file", ".wav", {".wav", ".wave", ".bwf"}},
                                 {"a stream of Layer I", ".mp1", {".mp1", ".m1a", ".mpa"}},
                                 {"a stream of Layer II", ".mp2", {".mp2", ".m2a", ".mpa"}}};
    const kind &own = kinds[is_wave(wanted) ? 0 : settings.audio_layer];
    const std::string extension = lower_extension(wanted.output);
    if (!has_sound_name(wanted.output) || std::ranges::count(own.extensions, extension) != 0) return;
    listener.note("the output is " + std::string(own.name) + ", whatever " + extension
                  + " says; the usual name ends with " + own.usual);
}

/// Opens the input and tells the user what to expect of it.
levelled_input prepare(const options &wanted, run_listener &listener, int jobs) {
    levelled_input heard = open_levelled(wanted, listener, jobs);
    const stream_plan &plan = heard.input.plan;
    check_rules(wanted, plan.settings, heard.input.source->shape().rate,
                [&](const std::string &text) { listener.violation(text); });
    for (const auto &note : plan.notes)
        listener.note(note);
    note_name(wanted, plan.settings, listener);
    return heard;
}

/// From an input to a stream with a name, step by step.
class file_encode {
  public:
    file_encode(const options &wanted, run_listener &listener, thread_budget *spare)
        : wanted_(wanted), listener_(listener), spare_(spare),
          other_jobs_(spare != nullptr ? 1 : wanted.jobs),
          heard_(prepare(wanted, listener, other_jobs_)), input_(heard_.input),
          settings_(input_.plan.settings), rate_(input_.source->shape().rate),
          files_(wanted, input_.status) {}

    file_result run() {
        keep_for_check();
        begin_files();
        const encoded_sound done = encode();
        finish_files(done);
        auto checked = check(done.samples);
        files_.publish();
        tell_outcome();
        return {settings_,    rate_,        writer_->frames(), done.samples,
                input_.shape, done.clipped, heard_.loudness,   std::move(checked)};
    }

  private:
    /// Where the input can be read only once.
    void keep_for_check() {
        if (!wanted_.check) return;
        if (files_.stream.is_direct())
            throw failure(exit_code::usage, "--check reads the stream back, which "
                                                + files_.stream.name()
                                                + " does not allow; name a file");
        if (input_.reads_twice(wanted_)) return;
        auto kept = std::make_unique<kept_source>(std::move(input_.source));
        kept_ = kept.get();
        input_.source = std::move(kept);
    }

    /// Whatever comes before the first frame.
    void begin_files() {
        if (files_.stream.is_copied())
            listener_.note("the folder of " + files_.stream.name()
                           + " takes no new file; the file's contents are replaced at the end");
        if (files_.list) list_.emplace(*files_.list, start_of(settings_));
        if (files_.trace) trace_.emplace(*files_.trace);
        writer_.emplace(files_.stream, list_ ? &*list_ : nullptr,
                        is_wave(wanted_) ? begin_wave() : write_tag());
    }

    /// @return bytes before the stream
    std::uint64_t begin_wave() {
        auto &bext = input_.labels.front().contents;
        bext = broadcast_extension(input_.origin, settings_, rate_);
        if (heard_.loudness) write_loudness(bext, heard_.loudness->figures);
        wave_.emplace(files_.stream, settings_, rate_, std::move(input_.labels));
        return wave_->begin();
    }

    /// @return bytes before the stream
    std::uint64_t write_tag() {
        if (!wanted_.tags) return 0;
        const bool is_file = !wanted_.raw && wanted_.input != "-";
        const byte_list tag = is_file ? id3_tag_of(wanted_.input) : byte_list();
        if (tag.empty()) listener_.note("--tags finds no tags in IN; the stream gets none");
        files_.stream.write(tag);
        return tag.size();
    }

    encoded_sound encode() {
        pcm_source &source = *input_.source;
        progress_listener &shown = listener_.begin(rate_, source.length());
        if (trace_) return encode_observed(source, settings_, *writer_, shown, trace_->observer());
        if (wanted_.engine) return encode_through_engine(source, settings_, *writer_, shown);
        if (wanted_.jobs == 1) return tools::encode(source, settings_, *writer_, shown);
        return encode_in_parallel(source, settings_, *writer_, shown,
                                  {.jobs = wanted_.jobs, .spare = spare_});
    }

    /// Whatever is known only behind the last frame.
    void finish_files(const encoded_sound &done) {
        if (trace_) trace_->check();
        heard_.finish(wanted_.sound);
        if (wave_ && heard_.loudness) wave_->set_loudness(heard_.loudness->figures);
        if (wave_) wave_->finish({writer_->bytes(), writer_->frames() * frame_samples(settings_)});
        files_.stream.check();
        if (done.samples == 0)
            throw failure(exit_code::input,
                          input_.name + " has no samples; there is nothing to encode");
        files_.close();
    }

    std::optional<check_result> check(std::uint64_t samples) {
        if (!wanted_.check) return std::nullopt;
        options again = wanted_;
        again.sound.gain_db += heard_.gain_db();
        const auto source = kept_ != nullptr ? kept_->again() : open_again(again).source;
        auto checked = check_stream(stream_in_file(), *source, samples, other_jobs_);
        listener_.figures(check_text(checked));
        if (checked.overs.samples > 0)
            listener_.note(overs_text(checked, again.sound, heard_.loudness));
        return checked;
    }

    finished_stream stream_in_file() const {
        return {
            .read = [this](std::uint64_t offset,
                           std::span<std::byte> room) { return files_.stream.read_back(offset, room); },
            .begin = writer_->begin(),
            .bytes = writer_->bytes(),
            .frames = writer_->frames(),
            .layer = settings_.audio_layer,
            .rate = rate_,
            .channels = channels_of(settings_),
            .intensity = settings_.audio_mode == MPEG_A_MODE_JOINT_STEREO};
    }

    void tell_outcome() {
        if (files_.stream.has_replaced())
            listener_.note("replaced the MPEG audio that was in its place");
        if (heard_.loudness) listener_.note(loudness_text(*heard_.loudness, wanted_.sound));
    }

    const options &wanted_;
    run_listener &listener_;
    thread_budget *spare_;
    int other_jobs_; ///< threads of what comes before and behind the encode
    levelled_input heard_;
    prepared_input &input_;
    mpeg_a_settings settings_;
    int rate_;
    output_files files_;
    kept_source *kept_ = nullptr;
    std::optional<timestamp_list> list_;
    std::optional<trace_file> trace_;
    std::optional<wave_container> wave_;
    std::optional<frame_writer> writer_;
};

} // namespace

std::optional<file_result> find_complete(const options &wanted, std::optional<std::uint64_t> recorded) {
    struct stat output {};
    if (::stat(wanted.output.c_str(), &output) != 0) return std::nullopt;
    const prepared_input input = open_again(wanted);
    const auto length = input.source->length();
    if (!S_ISREG(input.status.st_mode)) return std::nullopt;
    const auto time = [](const struct stat &file) {
        return std::pair(file.st_mtim.tv_sec, file.st_mtim.tv_nsec);
    };
    if (time(output) <= time(input.status)) return std::nullopt;
    const int rate = input.source->shape().rate;
    const std::uint64_t frame = frame_samples(input.plan.settings);
    const auto frames =
        frames_of_stream(wanted.output, is_wave(wanted), input.plan.settings, rate,
                         length ? std::optional((*length + frame - 1) / frame) : recorded);
    if (!frames) return std::nullopt;
    return file_result{.settings = input.plan.settings,
                       .rate = rate,
                       .frames = *frames,
                       .samples = length.value_or(*frames * frame),
                       .input = input.shape,
                       .clipped = {},
                       .loudness = {},
                       .check = {}};
}

file_result encode_file(const options &wanted, run_listener &listener, thread_budget *spare) {
    return file_encode(wanted, listener, spare).run();
}

} // namespace tools
