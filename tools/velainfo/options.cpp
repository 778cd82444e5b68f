#include "velainfo/options.hpp"

#include "common/failure.hpp"
#include "common/option_text.hpp"

#include <fstream>
#include <iterator>

namespace tools {
namespace {

constexpr const char *description =
    "velainfo: tells what is in streams of MPEG audio, Layer I or II, and whether they are sound.\n"
    "FILE is an elementary stream or a WAV file with one in it; MPEG-1, or MPEG-2's lower sampling "
    "rates.";

constexpr const char *footer =
    "Without --frames, --json, --brief or --html it prints a page of text for every stream.\n"
    "docs/velainfo.md explains every figure, the fields of --json and the keys of --expect.\n"
    "\n"
    "Exit codes, the worst of all files:\n"
    "  0  every stream is sound and is what was asked for\n"
    "  1  the command line is wrong\n"
    "  2  a file cannot be read, or is no MPEG audio of Layer I or II\n"
    "  3  a stream is damaged, or does not conform to the preset\n"
    "  4  the output cannot be written\n"
    "  5  memory is out, or the program is at fault\n"
    "  7  a stream is sound, and not what --expect asks for; two that --diff compares differ";

void check(const info_options &wanted) {
    const bool reads_stdin = std::ranges::find(wanted.inputs, "-") != wanted.inputs.end();
    const auto refuse_unless = [](bool right, const std::string &why) {
        if (!right) throw failure(exit_code::usage, why);
    };
    refuse_unless(!wanted.inputs.empty() || !wanted.lists.empty(),
                  "FILE is required; velainfo --help lists the options");
    refuse_unless(!reads_stdin || wanted.source.empty(),
                  "--source reads every stream twice; give files instead of -");
    refuse_unless(!reads_stdin || std::ranges::find(wanted.lists, "-") == wanted.lists.end(),
                  "standard input cannot be both a stream and --files-from's list");
    refuse_unless(wanted.trace.empty() || !wanted.html.empty(),
                  "--trace is drawn on the page; name one with --html");
    refuse_unless(wanted.trace.empty() || wanted.inputs.size() == 1,
                  "--trace belongs to one stream; give one FILE");
    refuse_unless(wanted.html != "-" || !(wanted.json || wanted.frames || wanted.brief),
                  "--html - and --json, --frames or --brief cannot both go to standard output");
    refuse_unless(!wanted.diff
                      || (wanted.inputs.size() == 2 && wanted.lists.empty() && !wanted.recursive),
                  "--diff compares two streams; give two FILEs");
    refuse_unless(!wanted.diff || !reads_stdin,
                  "--diff may read a stream twice; give files instead of -");
    refuse_unless(
        !wanted.diff
            || !(wanted.frames || wanted.sound || wanted.preset || !wanted.html.empty()
                 || !wanted.expected.empty() || !wanted.source.empty()),
        "--diff goes together with --json or --brief only; run velainfo once more for the rest");
    refuse_unless(!wanted.brief || !(wanted.json || wanted.frames),
                  "--brief is a line for people; leave it out beside --json or --frames");
    refuse_unless(wanted.html.empty() || wanted.inputs.size() <= most_drawn,
                  "--html draws at most " + std::to_string(most_drawn)
                      + " streams one above the other; give fewer, or run velainfo once for each");
}

/// A policy, or a file of one after @.
void add_expectations(info_options &wanted, const std::string &text) {
    std::string policy = text;
    if (text.starts_with('@')) {
        std::ifstream file(text.substr(1));
        policy.assign(std::istreambuf_iterator<char>(file), {});
        if (!file.is_open() || file.bad())
            throw failure(exit_code::input, "cannot read the policy " + text.substr(1));
    }
    for (expectation &e : parse_expectations(policy))
        wanted.expected.push_back(std::move(e));
}

} // namespace

std::optional<info_options> read_info_options(int argc, char **argv) {
    info_options wanted{};
    CLI::App app(description, "velainfo");
    app.footer(footer);
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.set_version_flag("--version", "velainfo " VELA_VERSION, "Print the version");
    std::vector<std::string> policies;
    const auto all = CLI::MultiOptionPolicy::TakeAll;
    app.add_option("FILE", wanted.inputs, "Streams, or - for standard input")->multi_option_policy(all);
    app.add_flag(
        "-r,--recursive", wanted.recursive,
        "FILE may be a folder: all files below it that are named as streams of MPEG audio are");
    app.add_option("--files-from", wanted.lists,
                   "Take names from a list, a line each; - for standard input")
        ->type_name("LIST")
        ->multi_option_policy(all)
        ->allow_extra_args(false);
    app.add_flag("--brief", wanted.brief, "A line for every stream");
    app.add_flag("--frames", wanted.frames, "A line for every frame; with --json an object");
    app.add_flag("--json", wanted.json, "For programs");
    app.add_option("--html", wanted.html, "Write a page with pictures")->type_name("OUT.html");
    app.add_flag("--overwrite", wanted.overwrite,
                 "Let the page replace a file that is none of velainfo's");
    app.add_option(
           "--expect", policies,
           "What a stream should be, such as layer=2,kbps=192..256,crc=yes; @FILE reads it from a file")
        ->type_name("KEY=VALUE,...")
        ->multi_option_policy(all)
        ->allow_extra_args(false);
    app.add_flag(
        "--sound", wanted.sound,
        "Measure the sound: loudness, peaks, silence, phase; so do --html and --expect where it asks");
    app.add_flag(
        "--diff", wanted.diff,
        "Compare two streams: which frames and fields differ, are lost or doubled, and the noise");
    app.add_option("--source", wanted.source, "The original, to compare the streams with")
        ->type_name("FILE");
    app.add_option("--trace", wanted.trace, "What velaenc --trace wrote, for the page")
        ->type_name("FILE");
    add_preset_option(app, "Check the streams against a format's rules",
                      [&wanted](int code, const std::string &) { wanted.preset = code; });
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &request) { // help or version
        app.exit(request);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        throw failure(exit_code::usage,
                      std::string(error.what()) + "; velainfo --help lists the options");
    }
    for (const std::string &policy : policies)
        add_expectations(wanted, policy);
    wanted.sound |= !wanted.html.empty() || needs_sound(wanted.expected);
    check(wanted);
    return wanted;
}

} // namespace tools
