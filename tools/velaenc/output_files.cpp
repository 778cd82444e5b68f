#include "velaenc/output_files.hpp"

#include "common/failure.hpp"
#include "output/timestamp_list.hpp"
#include "velaenc/finished_stream.hpp"
#include "velaenc/trace_file.hpp"

namespace tools {
namespace {

output_rules rules_for(const options &wanted, bool (*is_own)(const file_view &), const char *own) {
    return {wanted.overwrite, wanted.no_clobber, wanted.sync, is_own, own};
}

} // namespace

output_files::output_files(const options &wanted, const struct stat &input)
    : stream(wanted.output, input, rules_for(wanted, is_own_stream, "MPEG-1 audio of Layer I or II")) {
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

void output_files::close() {
    stream.close();
    if (list) list->close();
    if (trace) trace->close();
}

void output_files::publish() {
    stream.publish();
    try {
        if (list) list->publish();
        if (trace) trace->publish();
    } catch (const failure &error) {
        throw failure(error.code(), std::string(error.what()) + " (" + stream.name() + " is complete)");
    }
}

} // namespace tools
