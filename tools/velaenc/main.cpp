// velaenc: the order of a run, from the command line to the published files.

#include "common/failure.hpp"
#include "input/channel_fit.hpp"
#include "input/open_pcm.hpp"
#include "jobs/encode_loop.hpp"
#include "jobs/parallel_loop.hpp"
#include "output/output_file.hpp"
#include "output/unfinished_files.hpp"
#include "velaenc/options.hpp"
#include "velaenc/stream_settings.hpp"

#include <cstdio>
#include <new>

namespace tools {
namespace {

void say(const std::string &message) {
    std::fprintf(stderr, "velaenc: %s\n", message.c_str());
}

/// The stream and, where wanted, the list of its frames.
struct outputs {
    output_file stream;
    std::optional<output_file> list;

    outputs(const options &wanted, const struct stat &input) : stream(wanted.output, input) {
        if (wanted.timestamps.empty()) return;
        list.emplace(wanted.timestamps, input);
        if (!list->is_direct() && list->target() == stream.target())
            throw failure(exit_code::usage, "--timestamps names OUT itself; name another file");
    }

    void publish() {
        stream.close();
        if (list) list->close();
        stream.publish();
        if (list) list->publish();
    }
};

void print_statistics(const frame_writer &writer, const mpeg_a_settings &settings, double seconds,
                      double speed) {
    std::fprintf(stderr, "velaenc: %llu frames, %s, %d kbit/s, %.1f x real time\n",
                 static_cast<unsigned long long>(writer.frames()), clock_text(seconds, 3).c_str(),
                 kbit_of(settings), speed);
}

void encode_to(const options &wanted, pcm_source &source, const mpeg_a_settings &settings,
               outputs &files, const std::string &input_name) {
    std::optional<timestamp_list> list;
    if (files.list) list.emplace(*files.list);
    frame_writer writer(files.stream, list ? &*list : nullptr);
    const bool visible = !wanted.quiet && ::isatty(STDERR_FILENO);
    std::optional<progress> shown(std::in_place, source.shape().rate, source.length(), visible);
    const bool live = files.stream.is_direct();
    const std::uint64_t samples =
        wanted.engine ? encode_through_engine(source, settings, writer, *shown, live)
        : wanted.jobs == 1
            ? encode(source, settings, writer, *shown, live)
            : encode_in_parallel(source, settings, writer, *shown, {.jobs = wanted.jobs});
    if (list) list->flush();
    files.stream.check();
    if (samples == 0)
        throw failure(exit_code::input, input_name + " has no samples; there is nothing to encode");
    files.publish();
    const double speed = shown->speed();
    shown.reset();
    if (!wanted.quiet)
        print_statistics(writer, settings, static_cast<double>(samples) / source.shape().rate, speed);
}

void run(const options &wanted) {
    input_file input = open_input(wanted.input);
    const struct stat input_status = input.status;
    const std::string input_name = input.name;
    auto source = open_pcm(std::move(input), wanted.raw);
    const stream_plan plan = plan_stream(wanted, source->shape());
    check_rules(wanted, plan.settings, source->shape().rate);
    if (!wanted.quiet)
        for (const auto &note : plan.notes)
            say("note: " + note);
    source = fit_channels(std::move(source), channels_of(plan.settings));
    outputs files(wanted, input_status);
    encode_to(wanted, *source, plan.settings, files, input_name);
}

exit_code run_safely(int argc, char **argv) {
    try {
        const auto wanted = read_options(argc, argv);
        if (wanted) run(*wanted);
        return exit_code::success;
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
    tools::catch_signals();
    return static_cast<int>(tools::run_safely(argc, argv));
}
