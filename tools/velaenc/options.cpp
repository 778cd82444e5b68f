#include "velaenc/options.hpp"

#include "common/failure.hpp"
#include "common/option_text.hpp"
#include "input/sound_files.hpp"
#include "vela_enc_mp1a/settings.h"
#include "velaenc/help.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sched.h>
#include <span>
#include <thread>
#include <vector>

namespace tools {
namespace {

const choices<int> layer_codes{{"1", 1}, {"2", 2}};
const choices<int> bit_codes{{"0", 0}, {"1", 1}};
const choices<bool> container_codes{{"raw", false}, {"wav", true}};
const choices<raw_format> format_codes = [] {
    choices<raw_format> codes;
    for (const raw_format &each : raw_formats)
        codes.emplace_back(each.name, each);
    return codes;
}();

template <class Value>
std::string names_of(const choices<Value> &named) {
    std::string names;
    for (const auto &[name, value] : named)
        names += (names.empty() ? "" : "|") + name;
    return names;
}

template <class Value>
std::optional<Value> find_choice(const choices<Value> &named, const std::string &wanted) {
    for (const auto &[name, value] : named)
        if (name == wanted) return value;
    return std::nullopt;
}

template <class Value, class Target>
CLI::Option *add_choice(CLI::App &app, const std::string &option, Target &target,
                        const choices<Value> &named, const std::string &help) {
    const auto store = [&target, &named, option](const std::string &text) {
        const auto value = find_choice(named, text);
        if (!value) refuse(option, text, names_of(named));
        target = *value;
    };
    return app.add_option_function<std::string>(option, store, help)->type_name(names_of(named));
}

void add_choice(CLI::App &app, const std::string &option, wishes::wish &target,
                std::span<const named_value> named, const std::string &help) {
    const auto store = [&target, named, option](const std::string &text) {
        target = value_of(named, text);
        if (!target) refuse(option, text, list_of(named));
    };
    app.add_option_function<std::string>(option, store, help)->type_name(list_of(named));
}

template <class Number>
CLI::Option *add_number(CLI::App &app, const std::string &option, std::optional<Number> &target,
                        const std::string &type, const std::string &help) {
    const auto store = [&target, option](const std::string &text) {
        target = number_in<Number>(text);
        if (!target) refuse(option, text, "a whole number of a sensible size");
    };
    return app.add_option_function<std::string>(option, store, help)->type_name(type);
}

void add_stream_options(CLI::App &app, options &wanted) {
    add_preset_option(app, "Target format: its defaults and its rules",
                      [&wanted](int code, const std::string &text) {
                          wanted.preset = code;
                          wanted.preset_name = text;
                      });
    add_choice(app, "--layer", wanted.layer, layer_codes, "Layer");
    add_choice(app, "-m,--mode", wanted.mode, mode_names, "Mode; two channels are mixed down to mono");
    add_number(app, "-b,--bitrate", wanted.bitrate, "KBPS", "Bitrate in kbit/s");
    app.add_flag_function(
           "--crc,!--no-crc", [&wanted](std::int64_t given) { wanted.crc = given > 0; },
           "A CRC-16 in every frame, or none")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    add_choice(app, "--model", wanted.model, model_names,
               "Psychoacoustic model and allocation: the standard's, or tuned for less audible noise");
    add_choice(app, "--emphasis", wanted.emphasis, emphasis_names,
               "Label of the emphasis in the header");
    add_choice(app, "--private", wanted.private_bit, bit_codes, "Private bit of the header");
    add_choice(app, "--copyright", wanted.copyright, bit_codes, "Copyright bit of the header");
    add_choice(app, "--original", wanted.original, bit_codes, "Original bit of the header");
    add_choice(app, "--container", wanted.wave, container_codes,
               "wav: OUT is a Broadcast WAV file, as for a name that ends with .wav");
    app.add_flag("--tags", wanted.tags,
                 "The tags of IN in front of a bare stream, as ID3v2.4: title, artist, ISRC, ...");
    add_number(app, "--pts-offset", wanted.pts_offset, "N", "Start of the time stamps");
    add_number(app, "--pts-units", wanted.pts_units, "N",
               "Ticks a second of --pts-offset; without it 27000000");
}

void add_parsed_stream(CLI::App &app, int &stream) {
    const auto store = [&stream](const std::string &text) {
        stream = number_in<int>(text).value_or(0);
        if (stream < 1 || stream > 999) refuse("--stream", text, "1 to 999");
    };
    app.add_option_function<std::string>(
           "--stream", store, "Which sound stream of IN, a film's for instance; without it 1")
        ->type_name("N");
}

struct raw_options {
    bool raw = false;
    std::optional<int> rate, channels;
    raw_format format{};
};

void add_raw_options(CLI::App &app, raw_options &given) {
    auto *raw = app.add_flag("--raw", given.raw, "IN is headerless PCM");
    auto *rate = add_number(app, "--rate", given.rate, "HZ", "Sample rate of --raw input");
    auto *channels = add_number(app, "--channels", given.channels, "N", "Channels of --raw input");
    auto *format = add_choice(app, "--format", given.format, format_codes,
                              "Samples of --raw input; be: most significant byte first");
    for (auto *option : {rate, channels, format}) {
        option->needs(raw);
        raw->needs(option);
    }
    raw->excludes(app.get_option("--stream"));
}

constexpr int most_jobs = 256;

/// Processors that this process may use.
int usable_processors() {
    cpu_set_t allowed;
    if (::sched_getaffinity(0, sizeof allowed, &allowed) == 0) return CPU_COUNT(&allowed);
    return static_cast<int>(std::thread::hardware_concurrency()); // more than the set can name
}

void add_output_options(CLI::App &app, options &wanted, std::string &named) {
    app.add_option("-o,--output", named, "OUT, wherever it stands")
        ->type_name("OUT")
        ->excludes(app.get_option("OUT"));
    app.add_option("--timestamps", wanted.timestamps,
                   "CSV of the frames: number, byte offset, bytes, end and begin in 27 MHz, PTS")
        ->type_name("FILE");
    auto *overwrite = app.add_flag("--overwrite", wanted.overwrite, "Replace OUT whatever it is");
    app.add_flag("-n,--no-clobber", wanted.no_clobber, "Replace no file")->excludes(overwrite);
    app.add_flag("!--no-sync", wanted.sync,
                 "Do not wait until the files are on the disk, for very many of them");
}

std::string extension_of(const options &wanted) {
    if (wanted.wave.value_or(false)) return "wav";
    return wanted.layer.value_or(2) == 1 ? "mp1" : "mp2";
}

/// The input's name with the layer's extension, in the input's folder; a pipe goes on into a pipe.
std::string default_output(const options &wanted) {
    if (wanted.input == "-" || wanted.input.starts_with("/dev/")) return "-";
    return std::filesystem::path(wanted.input).replace_extension(extension_of(wanted)).string();
}

/// Time stamps are 64-bit counts of 27 MHz ticks; half of the range is left to the stream.
bool is_countable(const options &wanted) {
    const auto offset = static_cast<double>(wanted.pts_offset.value_or(0));
    const int units = wanted.pts_units.value_or(0);
    return std::abs(units > 0 ? offset * 27e6 / units : offset) < 0x1p62;
}

/// Names that the shell has made empty, as an unset variable does, are no names left out.
void check_names(const CLI::App &app) {
    for (const char *option : {"IN", "OUT", "MORE", "--output", "--timestamps"})
        for (const std::string &name : app.get_option(option)->results())
            if (name.empty()) throw failure(exit_code::usage, std::string(option) + " has no name");
}

/// IN and OUT, or the inputs of a batch.
void sort_names(const CLI::App &app, options &wanted, batch_options &batch,
                std::vector<std::string> more) {
    if (complete_batch(app, batch)) {
        auto &names = batch.plan.names;
        for (std::string *name : {&wanted.input, &wanted.output})
            if (!name->empty()) names.push_back(std::exchange(*name, ""));
        names.insert(names.end(), more.begin(), more.end());
        check_batch(batch, wanted.raw.has_value());
        wanted.batch = std::move(batch);
    } else if (wanted.input.empty()) {
        throw failure(exit_code::usage, "IN is required; velaenc --help lists the options");
    } else if (!more.empty()) {
        throw failure(exit_code::usage, "'" + more[0]
                                            + "' is one name too many after IN and OUT;"
                                              " --output-dir DIR takes any number of inputs");
    }
}

void complete(options &wanted, std::optional<int> jobs) {
    if (wanted.raw && wanted.raw->channels < 1)
        throw failure(exit_code::usage, "--channels should be 1 or 2");
    if (!is_countable(wanted))
        throw failure(exit_code::usage, "--pts-offset lies beyond what 27 MHz ticks can count");
    wanted.jobs = jobs.value_or(std::min(usable_processors(), most_jobs));
    if (wanted.jobs < 1 || wanted.jobs > most_jobs)
        throw failure(exit_code::usage, "--jobs should be 1 to " + std::to_string(most_jobs));
    if (wanted.tags && is_wave(wanted))
        throw failure(exit_code::usage,
                      "--tags is for bare streams; a WAV file has chunks of its own for"
                      " the texts of a WAV input, which it takes without being asked");
    if (wanted.batch) {
        wanted.batch->plan.extension = extension_of(wanted);
        return;
    }
    if (wanted.output.empty()) wanted.output = default_output(wanted);
    if (wanted.output == "-" && wanted.timestamps == "-")
        throw failure(exit_code::usage, "OUT and --timestamps cannot both go to standard output");
}

/// What helps after a mistake on the command line.
std::string hint_for(std::span<char *const> arguments) {
    for (const std::string argument : arguments.subspan(1))
        if (argument.starts_with('-') && std::filesystem::exists(argument))
            return "; a file whose name begins with - is written ./" + argument;
    return "; velaenc --help lists the options";
}

} // namespace

bool is_wave(const options &wanted) {
    return wanted.wave.value_or(lower_extension(wanted.output) == ".wav");
}

std::optional<options> read_options(int argc, char **argv) {
    options wanted;
    batch_options batch;
    std::vector<std::string> more;
    raw_options given;
    std::optional<int> jobs;
    std::string named_output;
    CLI::App app(help_description, "velaenc");
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.footer(help_footer);
    app.set_version_flag("--version", "velaenc " VELAENC_VERSION, "Print the version");
    app.add_option("IN", wanted.input, "Input file, or - for standard input");
    app.add_option("OUT", wanted.output,
                   "Output file, or - for standard output; without it IN with .mp1 or .mp2");
    app.add_option("MORE", more, "Further inputs, with --output-dir")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    add_stream_options(app, wanted);
    add_output_options(app, wanted, named_output);
    app.add_flag("--ignore-length", wanted.ignore_length,
                 "Encode what is there, whatever the header of IN says, damaged or not");
    add_parsed_stream(app, wanted.stream);
    add_sound_options(app, wanted.sound);
    add_raw_options(app, given);
    auto *threads =
        add_number(app, "-j,--jobs", jobs, "N",
                   "Threads that encode, for the same stream; without it one for every processor");
    auto *engine =
        app.add_flag("--engine", wanted.engine,
                     "Encode through the plug-in interface, on one thread, for the same stream")
            ->excludes(threads);
    app.add_option(
           "--trace", wanted.trace,
           "JSON of every frame: ratios, thresholds, allocation, bound, bits left; on one thread")
        ->type_name("FILE")
        ->excludes(threads)
        ->excludes(engine);
    app.add_flag("--check", wanted.check,
                 "Decode the stream (libmpg123) and hold it against IN before it gets its name");
    app.add_flag("-q,--quiet", wanted.quiet, "Only errors on standard error");
    app.add_flag("--force", wanted.force, "Encode although the stream will not conform to the preset");
    add_batch_options(app, batch);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &request) { // help or version
        app.exit(request);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        throw failure(exit_code::usage, error.what() + hint_for(std::span(argv, argv + argc)));
    }
    check_names(app);
    if (!named_output.empty()) wanted.output = named_output;
    if (given.raw) wanted.raw = raw_shape{given.rate.value(), given.channels.value(), given.format};
    sort_names(app, wanted, batch, std::move(more));
    complete(wanted, jobs);
    return wanted;
}

} // namespace tools
