#include "velainfo/options.hpp"

#include "common/failure.hpp"
#include "common/option_text.hpp"

namespace tools {
namespace {

constexpr const char *description =
    "velainfo: tells what is in streams of MPEG audio, Layer I or II, and whether they are sound.\n"
    "FILE is an elementary stream or a WAV file with one in it; MPEG-1, or MPEG-2's lower sampling "
    "rates.";

constexpr const char *footer =
    "Without --frames, --json or --html it prints a page of text for every stream. docs/velainfo.md\n"
    "explains every figure and the fields of --json.\n"
    "\n"
    "Exit codes:\n"
    "  0  every stream is sound and conforms to the preset\n"
    "  1  the command line is wrong\n"
    "  2  a file cannot be read, or is no MPEG audio of Layer I or II\n"
    "  3  a stream is damaged, or does not conform to the preset\n"
    "  4  the page cannot be written\n"
    "  5  memory is out, or the program is at fault";

void check(const info_options &wanted) {
    const bool reads_stdin = std::ranges::find(wanted.inputs, "-") != wanted.inputs.end();
    const auto refuse = [](const char *why) { throw failure(exit_code::usage, why); };
    if (reads_stdin && !wanted.source.empty())
        refuse("--source reads every stream twice; give files instead of -");
    if (!wanted.trace.empty() && wanted.html.empty())
        refuse("--trace is drawn on the page; name one with --html");
    if (!wanted.trace.empty() && wanted.inputs.size() > 1)
        refuse("--trace belongs to one stream; give one FILE");
    if (wanted.html == "-" && (wanted.json || wanted.frames))
        refuse("--html - and --json or --frames cannot both go to standard output");
}

} // namespace

std::optional<info_options> read_info_options(int argc, char **argv) {
    info_options wanted;
    CLI::App app(description, "velainfo");
    app.footer(footer);
    app.set_version_flag("--version", "velainfo " VELA_VERSION, "Print the version");
    app.add_option("FILE", wanted.inputs, "Streams, or - for standard input")->required();
    app.add_flag("--frames", wanted.frames, "A line for every frame; with --json an object");
    app.add_flag("--json", wanted.json, "For programs");
    app.add_option("--html", wanted.html, "Write a page with pictures")->type_name("OUT.html");
    app.add_option("--source", wanted.source, "The original, to compare the streams with")
        ->type_name("FILE");
    app.add_option("--trace", wanted.trace, "What velaenc --trace wrote, for the page")
        ->type_name("FILE");
    add_preset_option(app, "Check the streams against a format's rules",
                      [&wanted](int code, const std::string &text) {
                          wanted.preset = code;
                          wanted.preset_name = text;
                      });
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &request) { // help or version
        app.exit(request);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        throw failure(exit_code::usage,
                      std::string(error.what()) + "; velainfo --help lists the options");
    }
    check(wanted);
    return wanted;
}

} // namespace tools
