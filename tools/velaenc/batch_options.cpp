#include "velaenc/batch_options.hpp"

#include "common/failure.hpp"
#include "common/option_text.hpp"

#include <algorithm>
#include <array>

namespace tools {
namespace {

constexpr const char *group = "Batches";

batch_shard parse_shard(const std::string &text) {
    const auto [part, all] = split_at(text, '/');
    const auto index = number_in<std::uint64_t>(part), count = number_in<std::uint64_t>(all);
    if (!index || !count || *index < 1 || *index > *count)
        refuse("--shard", text, "I/N with I from 1 to N");
    return {*index, *count};
}

/// Options that leave the bytes of a stream as they are.
bool shapes_no_stream(const CLI::Option &option) {
    constexpr std::array others{"-h",           "--help",    "--version", "--jobs",
                                "--engine",     "--quiet",   "--force",   "--overwrite",
                                "--no-clobber", "--no-sync", "--output",  "--timestamps"};
    return option.get_positional() || option.get_group() == group
           || std::ranges::any_of(others, [&](const char *name) { return option.check_name(name); });
}

} // namespace

void add_batch_options(CLI::App &app, batch_options &wanted) {
    auto &plan = wanted.plan;
    plan.pattern = "{dir}/{stem}.{ext}";
    auto *folder = app.add_option("--output-dir", plan.folder,
                                  "Encode every IN into this folder; all positional names are inputs")
                       ->type_name("DIR");
    const std::array members{
        app.add_flag("-r,--recursive", plan.recursive,
                     "Take the sound files below every IN that is a folder, by name or content"),
        app.add_option("--files-from", plan.lists,
                       "Take the names in this file too, one a line; - is standard input")
            ->type_name("FILE")
            ->allow_extra_args(false)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll),
        app.add_flag("-0,--null", plan.zero_ended, "Names in such files end with a zero byte"),
        app.add_option("--base", plan.base,
                       "Keep the folders of names below this one; without it of names in lists, below"
                       " the current folder")
            ->type_name("FOLDER"),
        app.add_option("--name", plan.pattern,
                       std::string("Name of an output below DIR, of ") + pattern_fields)
            ->type_name("PATTERN")
            ->capture_default_str(),
        app.add_flag("--resume", wanted.resume,
                     "Skip what is complete: newer than its input, of its length, with these settings"),
        app.add_option("--report", wanted.report,
                       "Append a JSON line for every file; - is standard output")
            ->type_name("FILE"),
        app.add_option_function<std::string>(
               "--shard", [&plan](const std::string &text) { plan.shard = parse_shard(text); },
               "Only the files that a hash of their names puts into part I of N")
            ->type_name("I/N"),
    };
    folder->group(group);
    for (auto *option : members)
        option->group(group)->needs(folder);
    for (const char *name : {"--output", "--timestamps", "--trace"})
        folder->excludes(app.get_option(name));
}

bool complete_batch(const CLI::App &app, batch_options &wanted) {
    if (app.count("--output-dir") == 0) return false;
    for (const char *name : {"--output-dir", "--base", "--name", "--report", "--files-from"})
        for (const std::string &value : app.get_option(name)->results())
            if (value.empty()) throw failure(exit_code::usage, std::string(name) + " has no name");
    for (const CLI::Option *option : app.get_options()) {
        if (option->count() == 0 || shapes_no_stream(*option)) continue;
        for (const auto &value : option->results())
            wanted.stream_options.push_back(option->get_name() + "=" + value);
    }
    return true;
}

void check_batch(const batch_options &wanted, bool raw) {
    const auto &plan = wanted.plan;
    if (plan.names.empty() && plan.lists.empty())
        throw failure(exit_code::usage,
                      "--output-dir needs inputs: name files, folders with --recursive,"
                      " or a list with --files-from");
    if (std::ranges::count(plan.names, "-") != 0)
        throw failure(exit_code::usage, "standard input cannot be one of several inputs; --files-from -"
                                        " reads their names there");
    if (raw && plan.recursive)
        throw failure(exit_code::usage, "--recursive finds files by their content, which --raw files"
                                        " do not tell; name them, or list them with --files-from");
}

} // namespace tools
