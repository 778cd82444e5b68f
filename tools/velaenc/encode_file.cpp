#include "velaenc/encode_file.hpp"

#include "common/failure.hpp"
#include "input/channel_fit.hpp"
#include "input/open_pcm.hpp"
#include "jobs/encode_loop.hpp"
#include "jobs/parallel_loop.hpp"
#include "output/output_file.hpp"
#include "velaenc/stream_settings.hpp"

namespace tools {
namespace {

/// The stream and, where wanted, the list of its frames.
struct outputs {
    output_file stream;
    std::optional<output_file> list;

    outputs(const options &wanted, const struct stat &input)
        : stream(wanted.output, input, rules_for(wanted, is_mpeg_audio, "MPEG audio")) {
        if (wanted.timestamps.empty()) return;
        list.emplace(wanted.timestamps, input,
                     rules_for(wanted, is_timestamp_list, "a list of time stamps"));
        if (list->is_same(stream))
            throw failure(exit_code::usage, "--timestamps names OUT itself; name another file");
    }

    void publish() {
        stream.close();
        if (list) list->close();
        stream.publish();
        if (!list) return;
        try {
            list->publish();
        } catch (const failure &error) {
            throw failure(error.code(),
                          std::string(error.what()) + " (" + stream.name() + " is complete)");
        }
    }

    static output_rules rules_for(const options &wanted, bool (*is_own)(const std::string &),
                                  const char *own) {
        return {wanted.overwrite, wanted.no_clobber, wanted.sync, is_own, own};
    }
};

std::uint64_t encode_with(const options &wanted, pcm_source &source, const mpeg_a_settings &settings,
                          frame_writer &writer, progress_listener &shown, bool live) {
    if (wanted.engine) return encode_through_engine(source, settings, writer, shown, live);
    if (wanted.jobs == 1) return encode(source, settings, writer, shown, live);
    return encode_in_parallel(source, settings, writer, shown, {.jobs = wanted.jobs});
}

} // namespace

file_result encode_file(const options &wanted, run_listener &listener) {
    input_file input = open_input(wanted.input);
    const struct stat input_status = input.status;
    const std::string input_name = input.name;
    auto source = open_pcm(std::move(input), {wanted.raw, wanted.ignore_length,
                                              [&](const std::string &text) { listener.note(text); }});
    const stream_plan plan = plan_stream(wanted, source->shape());
    check_rules(wanted, plan.settings, source->shape().rate,
                [&](const std::string &text) { listener.violation(text); });
    for (const auto &note : plan.notes)
        listener.note(note);
    source = fit_channels(std::move(source), channels_of(plan.settings));

    outputs files(wanted, input_status);
    if (files.stream.is_copied())
        listener.note("the folder of " + files.stream.name()
                      + " takes no new file; the file's contents are replaced at the end");
    std::optional<timestamp_list> list;
    if (files.list) list.emplace(*files.list);
    frame_writer writer(files.stream, list ? &*list : nullptr);
    progress_listener &shown = listener.begin(source->shape().rate, source->length());
    const std::uint64_t samples =
        encode_with(wanted, *source, plan.settings, writer, shown, files.stream.is_direct());
    if (list) list->flush();
    files.stream.check();
    if (samples == 0)
        throw failure(exit_code::input, input_name + " has no samples; there is nothing to encode");
    files.publish();
    return {plan.settings, source->shape().rate, writer.frames(), samples};
}

} // namespace tools
