#include "velaenc/sound_options.hpp"

#include "common/counted.hpp"
#include "common/option_text.hpp"
#include "settings/record.hpp"

#include <cstdint>
#include <functional>

namespace tools {
namespace {

using nanoseconds = std::chrono::nanoseconds;

/// Nothing but digits, at most nine of them.
std::optional<std::int64_t> digits_in(std::string_view text) {
    if (text.empty() || text.size() > 9) return std::nullopt;
    if (text.find_first_not_of("0123456789") != text.npos) return std::nullopt;
    return number_in<std::int64_t>(text);
}

/// s, m:s or h:m:s, the seconds with up to nine decimals.
std::optional<nanoseconds> time_in(std::string_view text) {
    const std::size_t point = std::min(text.find('.'), text.size());
    std::string decimals(text.substr(point));
    if (decimals.size() == 1 || decimals.size() > 10) return std::nullopt;
    decimals.resize(10, '0');
    const auto fraction = digits_in(std::string_view(decimals).substr(1));
    text = point == 0 && !text.empty() ? "0" : text.substr(0, point);
    std::int64_t whole = 0;
    for (int field = 0; field < 3; ++field) {
        const std::size_t end = std::min(text.find(':'), text.size());
        const auto value = digits_in(text.substr(0, end));
        if (!value || !fraction || (field > 0 && *value >= 60)) return std::nullopt;
        whole = whole * 60 + *value;
        if (end == text.size())
            return nanoseconds(std::chrono::seconds(whole)) + nanoseconds(*fraction);
        text.remove_prefix(end + 1);
    }
    return std::nullopt;
}

template <class Store>
CLI::Option *add_parsed(CLI::App &app, const std::string &option, const std::string &type,
                        const std::string &help, Store store) {
    return app.add_option_function<std::string>(option, std::move(store), help)->type_name(type);
}

/// "FC=0.7,LFE=0.5"
std::vector<speaker_factor> factors_in(const std::string &text) {
    std::vector<speaker_factor> factors;
    for (std::string_view rest = text; !rest.empty();) {
        const auto [item, others] = split_at(rest, ',');
        const auto [name, number] = split_at(item, '=');
        const auto where = speaker_named(name);
        const auto factor = number_in<double>(number);
        if (!where || !factor || !(*factor >= 0 && *factor <= 10))
            refuse("--downmix", text,
                   "bs775, none, or SPEAKER=FACTOR,... with FL FR FC LFE BL BR FLC FRC BC SL SR and 0 "
                   "to 10");
        factors.push_back({*where, *factor});
        rest = others;
    }
    return factors;
}

void add_part(CLI::App &app, sound_options &wanted) {
    const auto parse = [](const std::string &option, const std::string &text) {
        const auto time = time_in(text);
        if (!time) refuse(option, text, "seconds or h:mm:ss.fff, with at most nine decimals");
        return *time;
    };
    add_parsed(app, "--start", "TIME", "Begin there in IN: seconds or h:mm:ss.fff, exact to the sample",
               [&wanted, parse](const std::string &text) { wanted.start = parse("--start", text); });
    add_parsed(app, "--duration", "TIME", "Encode that much of IN at most",
               [&wanted, parse](const std::string &text) {
                   wanted.duration = parse("--duration", text);
                   if (*wanted.duration == nanoseconds{}) refuse("--duration", text, "above 0");
               });
}

/// A level in dB of some kind, within bounds.
CLI::Option *add_level(CLI::App &app, const std::string &option, const std::string &type, double lowest,
                       double highest, const std::string &help,
                       const std::function<void(double)> &store) {
    const auto check = [=](const std::string &text) {
        const bool plus = text.starts_with('+') && !text.starts_with("+-");
        const auto level = number_in<double>(std::string_view(text).substr(plus ? 1 : 0));
        if (!level || !(*level >= lowest && *level <= highest))
            refuse(option, text, formatted("%g to %g", lowest, highest));
        store(*level);
    };
    return add_parsed(app, option, type, help, check);
}

void add_loudness(CLI::App &app, sound_options &wanted) {
    auto *gain = add_level(app, "--gain", "DB", -120, 120, "Louder or, below 0, softer by that many dB",
                           [&wanted](double db) { wanted.gain_db = db; });
    app.add_flag("--measure", wanted.measures, "Say how loud what is encoded is, by EBU R 128");
    auto *loudness =
        add_level(app, "--loudness", "LUFS", -60, 0,
                  "Measure IN first and bring it to that loudness by one gain", [&wanted](double lufs) {
                      wanted.loudness = lufs;
                      wanted.measures = true;
                  });
    loudness->excludes(gain);
    add_level(app, "--true-peak", "DBTP", -20, 0,
              "Bound of the true peak that --loudness keeps; without it -1",
              [&wanted](double dbtp) { wanted.true_peak = dbtp; })
        ->needs(loudness);
}

} // namespace

void add_sound_options(CLI::App &app, sound_options &wanted) {
    add_part(app, wanted);
    add_parsed(app, "--to-rate", "32000|44100|48000",
               "Sample rate of the stream; without it IN's, or the preset's, or the next one above",
               [&wanted](const std::string &text) {
                   wanted.rate = number_in<int>(text);
                   if (std::ranges::count(all_rates, wanted.rate) == 0)
                       refuse("--to-rate", text, "32000, 44100 or 48000");
               });
    add_parsed(
        app, "--downmix", "bs775|none|FACTORS",
        "Mix more than two channels to stereo by ITU-R BS.775 (so without it) and lower all so that"
        " nothing clips; refuse them; or with factors of your own (FC=0.7,LFE=0.5), nothing lowered",
        [&wanted](const std::string &text) {
            wanted.mixes_down = text != "none";
            wanted.downmix =
                text == "bs775" || text == "none" ? std::vector<speaker_factor>() : factors_in(text);
        });
    add_loudness(app, wanted);
    app.add_flag("--swap-channels", wanted.swaps_channels, "Left for right");
    auto *align =
        app.add_flag("--align", wanted.aligns,
                     "Take the decoder's delay out, so that the decoded sound lies where IN has it");
    app.add_flag("--flush-tail", wanted.flushes_tail,
                 "Append silence until the decoder has given out all of IN")
        ->excludes(align);
}

} // namespace tools
