#include "velaenc/encode_file.hpp"

#include "check/kept_source.hpp"
#include "common/failure.hpp"
#include "input/open_pcm.hpp"
#include "input/sound_files.hpp"
#include "jobs/encode_loop.hpp"
#include "jobs/loudness_pass.hpp"
#include "jobs/metered_source.hpp"
#include "jobs/parallel_loop.hpp"
#include "output/output_file.hpp"
#include "output/wave_container.hpp"
#include "velaenc/carried_labels.hpp"
#include "velaenc/check_text.hpp"
#include "velaenc/finished_stream.hpp"
#include "velaenc/id3_tag.hpp"
#include "velaenc/sound_plan.hpp"
#include "velaenc/stream_settings.hpp"
#include "velaenc/trace_file.hpp"

#include <algorithm>
#include <array>
#include <functional>

namespace tools {
namespace {

/// The stream and, where wanted, the list of its frames.
struct outputs {
    output_file stream;
    std::optional<output_file> list, trace;

    outputs(const options &wanted, const struct stat &input)
        : stream(wanted.output, input,
                 rules_for(wanted, is_own_stream, "MPEG-1 audio of Layer I or II")) {
        if (!wanted.trace.empty()) {
            if (wanted.model == MPEG_A_MODEL_TUNED)
                throw failure(exit_code::usage,
                              "--trace shows the standard's model; leave out --model tuned");
            trace.emplace(wanted.trace, input, rules_for(wanted, trace_file::is_trace, "a trace"));
            if (trace->is_same(stream))
                throw failure(exit_code::usage, "--trace names OUT itself; name another file");
        }
        if (wanted.timestamps.empty()) return;
        list.emplace(wanted.timestamps, input,
                     rules_for(wanted, is_timestamp_list, "a list of time stamps"));
        if (list->is_same(stream))
            throw failure(exit_code::usage, "--timestamps names OUT itself; name another file");
        if (trace && trace->is_same(*list))
            throw failure(exit_code::usage, "--trace and --timestamps name the same file; name two");
    }

    void close() {
        stream.close();
        if (list) list->close();
        if (trace) trace->close();
    }

    void publish() {
        stream.publish();
        try {
            if (list) list->publish();
            if (trace) trace->publish();
        } catch (const failure &error) {
            throw failure(error.code(),
                          std::string(error.what()) + " (" + stream.name() + " is complete)");
        }
    }

    static output_rules rules_for(const options &wanted, bool (*is_own)(const file_view &),
                                  const char *own) {
        return {wanted.overwrite, wanted.no_clobber, wanted.sync, is_own, own};
    }
};

encoded_sound encode_with(const options &wanted, pcm_source &source, const mpeg_a_settings &settings,
                          frame_writer &writer, progress_listener &shown, bool live,
                          thread_budget *spare, std::optional<trace_file> &trace) {
    if (trace) return encode_observed(source, settings, writer, shown, live, trace->observer());
    if (wanted.engine) return encode_through_engine(source, settings, writer, shown, live);
    if (wanted.jobs == 1) return encode(source, settings, writer, shown, live);
    return encode_in_parallel(source, settings, writer, shown, {.jobs = wanted.jobs, .spare = spare});
}

std::uint64_t frame_samples(const mpeg_a_settings &settings) noexcept {
    return settings.audio_layer == 1 ? 384 : 1152;
}

/// An input, as the stream will have it.
struct opened {
    struct stat status {};
    std::string name; ///< as messages call it
    std::unique_ptr<pcm_source> source;
    stream_plan plan;
    broadcast_origin origin;
    std::vector<wav_chunk> labels; ///< for a WAV file
    pcm_shape shape;               ///< of the input itself
};

opened open_source(const options &wanted, const std::function<void(const std::string &)> &note) {
    input_file input = open_input(wanted.input);
    opened result{input.status, input.name, nullptr, {}, {}, {{"bext", {}}}, {}};
    std::vector<std::string> lost;
    if (is_wave(wanted) && input.seekable() && !wanted.raw) result.labels = labels_of(input, lost);
    result.origin.bext = result.labels.front().contents;
    result.source = open_pcm(std::move(input), {.raw = wanted.raw,
                                                .ignore_length = wanted.ignore_length,
                                                .on_note = note,
                                                .asks_ffmpeg = true,
                                                .stream = wanted.stream});
    const pcm_shape &shape = result.shape = result.source->shape();
    result.origin.rate = shape.rate;
    result.origin.channels = shape.channels;
    if (shape.format != sample_format::f32) result.origin.bits = 8 * static_cast<int>(shape.format);
    result.plan = plan_stream(wanted, result.source->shape());
    result.origin.start = samples_before(wanted, shape.rate);
    result.origin.sounds_alike = result.origin.start == 0 && !wanted.sound.duration
                                 && wanted.sound.gain_db == 0
                                 && shape.channels == channels_of(result.plan.settings);
    result.source =
        shape_sound(std::move(result.source), wanted, result.plan.settings, result.plan.notes);
    fit_labels(
        result.labels,
        {result.origin.start, result.source->length(), result.origin.rate, result.source->shape().rate},
        lost);
    result.plan.notes.insert(result.plan.notes.end(), lost.begin(), lost.end());
    return result;
}

/// The input at the level that was asked for, and how loud that is.
struct levelled {
    opened input;
    std::optional<programme_loudness> loudness;
    metered_source *meter = nullptr; ///< tells at the end, where the input can be read only once

    /// @return how loud it was, now that all of it was read
    std::optional<programme_loudness> finish(const sound_options &wanted) {
        if (meter != nullptr) loudness = reach_goal(meter->finish().figures(), wanted);
        return loudness;
    }
};

levelled open_levelled(const options &wanted, run_listener &listener, int jobs) {
    levelled result{
        open_source(wanted, [&](const std::string &text) { listener.note(text); }), {}, nullptr};
    pcm_source &source = *result.input.source;
    if (!wanted.sound.measures) return result;
    if (!S_ISREG(result.input.status.st_mode) || wanted.input == "-") {
        if (wanted.sound.loudness)
            throw failure(exit_code::usage,
                          "--loudness reads IN twice, which " + result.input.name
                              + " does not allow; give it a file, or take --measure, which says at the "
                                "end how loud it was");
        auto meter = std::make_unique<metered_source>(std::move(result.input.source));
        result.meter = meter.get();
        result.input.source = std::move(meter);
        return result;
    }
    auto &shown = listener.begin_measuring(source.shape().rate, source.length());
    result.loudness = reach_goal(hear_source(source, jobs, shown).figures(), wanted.sound);
    options louder = wanted;
    louder.sound.gain_db += result.loudness->gain_db;
    result.input = open_source(louder, [](const std::string &) {}); // notes are said already
    return result;
}

/// A name that promises another format than the file will have.
void note_name(const options &wanted, const mpeg_a_settings &settings, run_listener &listener) {
    struct kind {
        const char *name, *usual;
        std::vector<std::string> extensions;
    };
    static const std::array<kind, 3> kinds{
        {{"a WAV file", ".wav", {".wav", ".wave", ".bwf"}},
         {"a stream of Layer I", ".mp1", {".mp1", ".m1a", ".mpa"}},
         {"a stream of Layer II", ".mp2", {".mp2", ".m2a", ".mpa"}}}};
    const kind &own = kinds.at(is_wave(wanted) ? 0 : static_cast<std::size_t>(settings.audio_layer));
    const std::string extension = lower_extension(wanted.output);
    if (!has_sound_name(wanted.output) || std::ranges::count(own.extensions, extension) != 0) return;
    listener.note("the output is " + std::string(own.name) + ", whatever " + extension
                  + " says; the usual name ends with " + own.usual);
}

/// @return its bytes
std::uint64_t write_tag(const options &wanted, output_file &file, run_listener &listener) {
    if (!wanted.tags) return 0;
    const bool is_file = !wanted.raw && wanted.input != "-";
    const byte_list tag = is_file ? id3_tag_of(wanted.input) : byte_list();
    if (tag.empty()) listener.note("--tags finds no tags in IN; the stream gets none");
    file.write(tag);
    return tag.size();
}

/// Keeps the input for the check where it can be read only once. @return null where nothing is kept
kept_source *keep_for_check(const options &wanted, const output_file &stream, opened &input) {
    if (!wanted.check) return nullptr;
    if (stream.is_direct())
        throw failure(exit_code::usage, "--check reads the stream back, which " + stream.name()
                                            + " does not allow; name a file");
    if (S_ISREG(input.status.st_mode) && wanted.input != "-") return nullptr;
    auto kept = std::make_unique<kept_source>(std::move(input.source));
    kept_source *const result = kept.get();
    input.source = std::move(kept);
    return result;
}

/// @param gain_db  by which --loudness raised the sound
std::optional<check_result> check(const options &wanted, const output_file &file,
                                  finished_stream stream, std::uint64_t samples, double gain_db,
                                  kept_source *kept, int jobs, run_listener &listener) {
    if (!wanted.check) return std::nullopt;
    options again = wanted;
    again.sound.gain_db += gain_db;
    const auto source =
        kept != nullptr ? kept->again() : open_source(again, [](const std::string &) {}).source;
    stream.read = [&file](std::uint64_t offset, std::span<std::byte> room) {
        return file.read_back(offset, room);
    };
    auto checked = check_stream(stream, *source, samples, jobs);
    listener.figures(check_text(checked));
    if (checked.overs.samples > 0) listener.note(overs_text(checked, again.sound.gain_db));
    return checked;
}

finished_stream stream_of(const mpeg_a_settings &settings, int rate, const frame_writer &writer,
                          std::uint64_t offset) {
    return {.read = {},
            .begin = offset,
            .bytes = writer.bytes(),
            .frames = writer.frames(),
            .layer = settings.audio_layer,
            .rate = rate,
            .channels = channels_of(settings),
            .intensity = settings.audio_mode == MPEG_A_MODE_JOINT_STEREO};
}

} // namespace

std::optional<file_result> find_complete(const options &wanted) {
    struct stat output {};
    if (::stat(wanted.output.c_str(), &output) != 0) return std::nullopt;
    const opened input = open_source(wanted, [](const std::string &) {});
    const auto length = input.source->length();
    if (length == 0 || !S_ISREG(input.status.st_mode)) return std::nullopt;
    const auto time = [](const struct stat &file) {
        return std::pair(file.st_mtim.tv_sec, file.st_mtim.tv_nsec);
    };
    if (time(output) <= time(input.status)) return std::nullopt;
    const int rate = input.source->shape().rate;
    const std::uint64_t frame = frame_samples(input.plan.settings);
    const auto frames =
        frames_of_stream(wanted.output, is_wave(wanted), input.plan.settings, rate,
                         length ? std::optional((*length + frame - 1) / frame) : std::nullopt);
    if (!frames) return std::nullopt;
    return file_result{input.plan.settings, rate, *frames, length.value_or(*frames * frame),
                       input.shape};
}

file_result encode_file(const options &wanted, run_listener &listener, thread_budget *spare) {
    const int jobs = spare != nullptr ? 1 : wanted.jobs; // of what comes before and behind the encode
    levelled heard = open_levelled(wanted, listener, jobs);
    auto &[input_status, input_name, source, plan, origin, labels, shape] = heard.input;
    check_rules(wanted, plan.settings, source->shape().rate,
                [&](const std::string &text) { listener.violation(text); });
    for (const auto &note : plan.notes)
        listener.note(note);

    note_name(wanted, plan.settings, listener);
    outputs files(wanted, input_status);
    kept_source *const kept = keep_for_check(wanted, files.stream, heard.input);
    if (files.stream.is_copied())
        listener.note("the folder of " + files.stream.name()
                      + " takes no new file; the file's contents are replaced at the end");
    std::optional<timestamp_list> list;
    if (files.list) list.emplace(*files.list, start_of(plan.settings));
    std::optional<trace_file> trace;
    if (files.trace) trace.emplace(*files.trace);
    const int rate = source->shape().rate;
    std::optional<wave_container> wave;
    if (is_wave(wanted)) {
        const int kbps = kbit_of(plan.settings);
        auto &bext = labels.front().contents;
        bext = broadcast_extension(origin, plan.settings, kbps, rate);
        if (heard.loudness) write_loudness(bext, heard.loudness->figures);
        wave.emplace(files.stream, plan.settings, kbps, rate, std::move(labels));
    }
    const std::uint64_t offset =
        wave ? wave->stream_offset() : write_tag(wanted, files.stream, listener);
    frame_writer writer(files.stream, list ? &*list : nullptr, offset);
    progress_listener &shown = listener.begin(source->shape().rate, source->length());
    const bool live = files.stream.is_direct() || (list && list->is_direct());
    const encoded_sound done =
        encode_with(wanted, *source, plan.settings, writer, shown, live, spare, trace);
    if (list) list->flush();
    if (trace) trace->flush();
    const auto loudness = heard.finish(wanted.sound);
    if (wave && loudness) wave->set_loudness(loudness->figures);
    if (wave) wave->finish({writer.bytes(), writer.frames() * frame_samples(plan.settings)});
    files.stream.check();
    if (done.samples == 0)
        throw failure(exit_code::input, input_name + " has no samples; there is nothing to encode");
    files.close();
    auto checked = check(wanted, files.stream, stream_of(plan.settings, rate, writer, offset),
                         done.samples, loudness ? loudness->gain_db : 0, kept, jobs, listener);
    files.publish();
    if (files.stream.has_replaced()) listener.note("replaced the MPEG audio that was in its place");
    if (loudness) listener.note(loudness_text(*loudness, wanted.sound));
    return {plan.settings, rate,         writer.frames(), done.samples,
            shape,         done.clipped, loudness,        std::move(checked)};
}

} // namespace tools
