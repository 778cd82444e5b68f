#include "velainfo/expectation.hpp"

#include "common/failure.hpp"
#include "settings/names.hpp"
#include "velainfo/preset_check.hpp"
#include "velainfo/text_report.hpp"

#include <algorithm>
#include <charconv>
#include <limits>
#include <sstream>

namespace tools {
namespace {

using field = stream_report::field;
constexpr double unlimited = std::numeric_limits<double>::infinity();

enum class value_kind { number, seconds, mode, emphasis, yes_or_no };

/// What a number alone is.
enum class lone { value, least, most };

struct expectation_key {
    const char *name;
    value_kind kind;
    const char *unit;
    lone single;
    const char *example;
    std::optional<field> header = {};
    /// What is heard; null for what the stream says.
    std::optional<double> (*heard)(const sound_report &) = nullptr;
};

constexpr expectation_key keys[] = {
    {"rate", value_kind::number, "Hz", lone::value, "48000", field::rate},
    {"layer", value_kind::number, "", lone::value, "2", field::layer},
    {"mode", value_kind::mode, "", lone::value, "stereo|joint", field::mode},
    {"kbps", value_kind::number, "kbit/s", lone::value, "192..256", field::kbps},
    {"channels", value_kind::number, "", lone::value, "2", field::mode},
    {"emphasis", value_kind::emphasis, "", lone::value, "none", field::emphasis},
    {"crc", value_kind::yes_or_no, "", lone::value, "yes", field::crc},
    {"copyright", value_kind::yes_or_no, "", lone::value, "no", field::copyright},
    {"original", value_kind::yes_or_no, "", lone::value, "yes", field::original},
    {"constant", value_kind::yes_or_no, "", lone::value, "yes"},
    {"min-seconds", value_kind::seconds, "s", lone::least, "60"},
    {"max-seconds", value_kind::seconds, "s", lone::most, "3600"},
    {"max-damage", value_kind::number, "places", lone::most, "0"},
    {"loudness",
     value_kind::number,
     "LUFS",
     lone::value,
     "-23\u00B11",
     {},
     [](const sound_report &s) { return s.loudness.integrated; }},
    {"range",
     value_kind::number,
     "LU",
     lone::most,
     "20",
     {},
     [](const sound_report &s) { return std::optional(s.loudness.range); }},
    {"true-peak",
     value_kind::number,
     "dBTP",
     lone::most,
     "..-1",
     {},
     [](const sound_report &s) { return s.loudness.true_peak; }},
    {"silence",
     value_kind::seconds,
     "s",
     lone::most,
     "2s",
     {},
     [](const sound_report &s) { return std::optional(s.longest_silence); }},
    {"clipped",
     value_kind::number,
     "samples",
     lone::most,
     "0",
     {},
     [](const sound_report &s) { return std::optional(static_cast<double>(s.clipped)); }},
    {"correlation",
     value_kind::number,
     "",
     lone::least,
     "0..1",
     {},
     [](const sound_report &s) { return s.correlation; }},
    {"dead-channels", value_kind::number, "", lone::most, "0", {}, [](const sound_report &s) {
         return std::optional(static_cast<double>(std::ranges::count(s.is_dead, true)));
     }}};

const expectation_key *key_called(const std::string &name) {
    const auto found =
        std::ranges::find_if(keys, [&](const expectation_key &key) { return name == key.name; });
    return found == std::ranges::end(keys) ? nullptr : found;
}

[[noreturn]] void refuse(const std::string &line, const std::string &right) {
    throw failure(exit_code::usage, "--expect: '" + line + "' should be " + right);
}

std::string trimmed(const std::string &text) {
    const auto first = text.find_first_not_of(" \t\r");
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

std::optional<double> number_of(std::string text, bool seconds) {
    if (seconds && text.ends_with('s')) text.pop_back();
    if (text.starts_with('+')) text.erase(0, 1);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

struct limits {
    double lowest, highest;
};

/// "192", "192..256", "..-1", "-23+-1".
std::optional<limits> read_limits(const std::string &text, const expectation_key &key) {
    const auto value_of = [&](std::string_view part) {
        return number_of(std::string(part), key.kind == value_kind::seconds);
    };
    const auto split = [&](std::string_view separator) {
        const auto at = text.find(separator);
        return std::pair{text.substr(0, at),
                         at == std::string::npos ? text : text.substr(at + separator.size())};
    };
    for (const std::string_view sign : {"\u00B1", "+-", "+/-"}) {
        if (text.find(sign) == std::string::npos) continue;
        const auto [middle, spread] = split(sign);
        const auto value = value_of(middle), width = value_of(spread);
        if (!value || !width || *width < 0) return std::nullopt;
        return limits{*value - *width, *value + *width};
    }
    const bool is_range = text.find("..") != std::string::npos;
    const auto [low, high] = split("..");
    const auto first = value_of(low), last = value_of(high);
    if ((!first && !(is_range && low.empty())) || (!last && !(is_range && high.empty())))
        return std::nullopt;
    const limits found{!first || (!is_range && key.single == lone::most) ? -unlimited : *first,
                       !last || (!is_range && key.single == lone::least) ? unlimited : *last};
    const bool has_any = first || last;
    return has_any && found.lowest <= found.highest ? std::optional(found) : std::nullopt;
}

/// The values that a key may have; none for numbers.
std::vector<std::string> words_of(const expectation_key &key) {
    if (key.kind == value_kind::yes_or_no) return {"yes", "no"};
    std::vector<std::string> words;
    const auto add = [&](const auto &names) {
        for (const named_value &name : names)
            words.emplace_back(name.name);
    };
    if (key.kind == value_kind::mode) add(mode_names);
    if (key.kind == value_kind::emphasis) add(emphasis_names);
    return words;
}

expectation parse_line(const std::string &line) {
    const auto equals = line.find('=');
    expectation out{.key = trimmed(line.substr(0, equals)), .text = {}, .words = {}};
    const expectation_key *const key = key_called(out.key);
    if (equals == std::string::npos || key == nullptr)
        refuse(line, "KEY=VALUE, where KEY is " + expectation_keys());
    out.text = trimmed(line.substr(equals + 1));
    std::istringstream parts(out.text);
    const auto known = words_of(*key);
    for (std::string part; std::getline(parts, part, '|');) {
        part = trimmed(part);
        const bool is_known = known.empty() ? read_limits(part, *key).has_value()
                                            : std::ranges::find(known, part) != known.end();
        if (!is_known) refuse(line, std::string(key->name) + "=" + key->example + ", for instance");
        out.words.push_back(part);
    }
    if (out.words.empty()) refuse(line, std::string(key->name) + "=" + key->example + ", for instance");
    return out;
}

/// Whether a number is one of the alternatives.
bool admits(const expectation &e, const expectation_key &key, double value) {
    return std::ranges::any_of(e.words, [&](const std::string &word) {
        const auto one = read_limits(word, key);
        return one && value >= one->lowest && value <= one->highest;
    });
}

bool admits(const expectation &e, const std::string &word) {
    return std::ranges::find(e.words, word) != e.words.end();
}

std::string number_text(double value) {
    std::string text = format("%.2f", value);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
    return text;
}

class checker {
  public:
    checker(const stream_report &report, const sound_report *sound)
        : report_(report), sound_(sound), headers_(headers_in_order(report)) {}

    std::optional<violation> check(const expectation &e) const {
        const expectation_key &key = *key_called(e.key);
        if (key.header) return check_headers(e, key, *key.header);
        if (e.key == "constant") return check_constant(e);
        const auto measured = measure(key);
        if (measured && admits(e, key, *measured)) return std::nullopt;
        if (!measured && std::ranges::all_of(e.words, [&](const std::string &word) {
                const auto one = read_limits(word, key);
                return one && one->lowest == -unlimited;
            }))
            return std::nullopt;
        violation broken = broken_by(e, key, measured ? number_text(*measured) : "unknown", {});
        if (e.key == "silence") broken.seconds = sound_->longest_silence_begin;
        return broken;
    }

  private:
    static violation broken_by(const expectation &e, const expectation_key &key,
                               const std::string &value, const header_use &use) {
        const std::string unit = *key.unit == '\0' ? "" : std::string(" ") + key.unit;
        return {.rule = e.key + "=" + e.text,
                .text = e.key + " is " + value + unit + ", should be " + e.text,
                .frame = use.frame,
                .offset = use.offset,
                .seconds = use.seconds};
    }

    std::optional<violation> check_headers(const expectation &e, const expectation_key &key,
                                           field which) const {
        for (const auto &[header, use] : headers_) {
            const int value = header[which];
            const std::string word = which == field::mode       ? name_of(mode_names, value).name
                                     : which == field::emphasis ? name_of(emphasis_names, value).name
                                     : value == 1               ? "yes"
                                                                : "no";
            if (e.key == "channels") {
                const int channels = value == 3 ? 1 : 2;
                if (!admits(e, key, channels)) return broken_by(e, key, std::to_string(channels), use);
            } else if (key.kind == value_kind::number) {
                if (!admits(e, key, value)) return broken_by(e, key, std::to_string(value), use);
            } else if (!admits(e, word)) {
                return broken_by(e, key, word, use);
            }
        }
        return std::nullopt;
    }

    std::optional<violation> check_constant(const expectation &e) const {
        const auto changed = std::ranges::find_if(
            headers_, [&](const auto &entry) { return entry.first != headers_.front().first; });
        const bool constant = changed == headers_.end();
        if (admits(e, constant ? "yes" : "no")) return std::nullopt;
        if (constant) return broken_by(e, *key_called(e.key), "yes", {});
        std::string what = "no: ";
        for (std::size_t i = 0; i < changed->first.size(); ++i) {
            const int before = headers_.front().first[i], now = changed->first[i];
            if (before == now) continue;
            what += (what.ends_with(": ") ? "" : ", ") + std::string(field_names[i]) + " "
                    + value_text(static_cast<field>(i), before) + " becomes "
                    + value_text(static_cast<field>(i), now);
        }
        return broken_by(e, *key_called(e.key), what, changed->second);
    }

    std::optional<double> measure(const expectation_key &key) const {
        if (key.heard != nullptr) return key.heard(*sound_);
        return key.kind == value_kind::seconds ? report_.seconds()
                                               : static_cast<double>(report_.damage_count);
    }

    const stream_report &report_;
    const sound_report *sound_;
    std::vector<std::pair<header_fields, header_use>> headers_;
};

} // namespace

std::string expectation_keys() {
    std::string names;
    for (const expectation_key &key : keys)
        names += (names.empty() ? "" : ", ") + std::string(key.name);
    return names;
}

std::vector<expectation> parse_expectations(const std::string &text) {
    std::vector<expectation> list;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream parts(line.substr(0, line.find('#')));
        for (std::string part; std::getline(parts, part, ',');)
            if (!trimmed(part).empty()) list.push_back(parse_line(trimmed(part)));
    }
    return list;
}

bool needs_sound(const std::vector<expectation> &expected) {
    return std::ranges::any_of(
        expected, [](const expectation &e) { return key_called(e.key)->heard != nullptr; });
}

std::vector<violation> check_expectations(const stream_report &report, const sound_report *sound,
                                          const std::vector<expectation> &expected) {
    std::vector<violation> broken;
    const checker check(report, sound);
    for (const expectation &e : expected)
        if (auto found = check.check(e)) broken.push_back(std::move(*found));
    return broken;
}

} // namespace tools
