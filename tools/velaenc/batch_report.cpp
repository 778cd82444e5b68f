#include "velaenc/batch_report.hpp"

#include "output/file_digest.hpp"
#include "settings/names.hpp"
#include "settings/record.hpp"
#include "velaenc/check_text.hpp"

#include <array>
#include <cmath>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>

namespace tools {
namespace {

using json = nlohmann::ordered_json;

std::string text_of(const json &value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

/// Names need not be UTF-8, JSON has to be: then their bytes stand in a field of their own beside it.
void add_name(json &line, const std::string &field, const std::string &name) {
    line[field] = name;
    if (json::parse(text_of(name)) == name) return;
    constexpr const char *digits = "0123456789abcdef";
    std::string bytes;
    for (const char each : name) {
        const auto byte = static_cast<unsigned char>(each);
        (bytes += digits[byte >> 4]) += digits[byte & 15];
    }
    line[field + "_hex"] = bytes;
}

/// A line may be anything: only texts are taken from it.
std::optional<std::string> text_in(const json &line, const std::string &field) {
    const auto found = line.find(field);
    return found != line.end() && found->is_string() ? std::optional(found->get<std::string>())
                                                     : std::nullopt;
}

std::vector<std::string> texts_in(const json &line, const std::string &field) {
    std::vector<std::string> texts;
    const auto found = line.find(field);
    if (found == line.end() || !found->is_array()) return texts;
    for (const json &each : *found)
        texts.push_back(each.is_string() ? each.get<std::string>() : "");
    return texts;
}

json settings_of(const file_result &result) {
    const mpeg_a_settings &settings = result.settings;
    return {{"layer", static_cast<int>(settings.audio_layer)},
            {"mode", name_of(mode_names, settings.audio_mode).name},
            {"kbps", kbit_of(settings)},
            {"rate", result.rate},
            {"crc", settings.error_protection != 0},
            {"emphasis", name_of(emphasis_names, settings.emphasis).name},
            {"private", static_cast<int>(settings.extension)},
            {"copyright", static_cast<int>(settings.copyright)},
            {"original", static_cast<int>(settings.original)}};
}

json rounded(std::optional<double> value, double scale) {
    return value && std::isfinite(*value) ? json(std::round(*value * scale) / scale) : json();
}

json loudness_of(const programme_loudness &reached) {
    const auto number = [](std::optional<double> value) { return rounded(value, 100); };
    const loudness_figures &figures = reached.figures;
    return {{"integrated_lufs", number(figures.integrated)},
            {"range_lu", number(figures.range)},
            {"momentary_lufs", number(figures.momentary)},
            {"short_term_lufs", number(figures.short_term)},
            {"true_peak_dbtp", number(figures.true_peak)},
            {"gain_db", number(reached.gain_db)},
            {"limited_by_true_peak", reached.limited_by_peak}};
}

/// The input itself, as it is read.
json source_of(const pcm_shape &input) {
    return {{"rate", input.rate},
            {"channels", input.channels},
            {"bits", 8 * static_cast<int>(input.format)}};
}

json check_of(const check_result &checked) {
    json seconds = json::array();
    const auto ratio = [](std::optional<double> value) { return rounded(value, 10); };
    for (std::size_t i = 0; i < checked.count(); ++i)
        seconds.push_back(ratio(checked.second(i)));
    const auto least = least_second(checked);
    return {{"snr_db", ratio(checked.whole())},
            {"least_snr_db", ratio(least ? checked.second(*least) : std::nullopt)},
            {"least_snr_second", least ? json(*least) : json()},
            {"clipped_samples", checked.overs.samples},
            {"peak_dbfs", rounded(20 * std::log10(checked.overs.peak), 100)},
            {"too_loud_by_db", excess_of(checked)},
            {"snr_db_of_seconds", seconds}};
}

/// ISO 8601, UTC.
std::string text_of(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm fields{};
    std::array<char, sizeof "2026-01-01T00:00:00Z"> text{};
    ::gmtime_r(&seconds, &fields);
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &fields);
    return text.data();
}

/// What is known of a stream that is there.
void add_result(json &line, const report_entry &entry) {
    const file_result &result = *entry.result;
    line["source"] = source_of(result.input);
    line["settings"] = settings_of(result);
    line["frames"] = result.frames;
    line["seconds"] = result.seconds();
    if (!entry.was_complete) {
        line["peak_dbfs"] = rounded(20 * std::log10(result.clipped.peak), 100);
        line["clipped_samples"] = result.clipped.samples;
    }
    if (result.loudness) line["loudness"] = loudness_of(*result.loudness);
    if (result.check) line["check"] = check_of(*result.check);
    line["sha256"] = sha256_of(entry.output);
}

} // namespace

batch_report::batch_report(const std::string &path, std::vector<std::string> options)
    : path_(path), options_(std::move(options)), log_(path, "{\"input\":\"") {
}

std::string batch_report::key_of(const std::string &output) {
    json line;
    add_name(line, "output", output);
    return text_in(line, "output_hex").value_or(output);
}

void batch_report::load() {
    std::ifstream file(path_ == "-" ? "" : path_);
    for (std::string text; std::getline(file, text);) {
        const json line = json::parse(text, nullptr, false);
        if (!line.is_object()) continue;
        const auto output = text_in(line, "output"), bytes = text_in(line, "output_hex");
        if (!output || text_in(line, "status").value_or("failed") == "failed") continue;
        const auto frames = line.find("frames");
        const bool counted = frames != line.end() && frames->is_number_unsigned();
        earlier_[bytes.value_or(*output)] = {texts_in(line, "options") == options_,
                                             counted ? std::optional(frames->get<std::uint64_t>())
                                                     : std::nullopt};
    }
}

std::optional<batch_report::earlier_stream> batch_report::earlier(const std::string &output) const {
    const auto found = earlier_.find(key_of(output));
    return found == earlier_.end() ? std::nullopt : std::optional(found->second);
}

void batch_report::add(const report_entry &entry) {
    json line;
    add_name(line, "input", entry.input);
    if (entry.output.empty())
        line["output"] = nullptr;
    else
        add_name(line, "output", entry.output);
    line["options"] = options_;
    line["status"] = !entry.result ? "failed" : entry.was_complete ? "complete" : "encoded";
    line["started"] = text_of(entry.start);
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - entry.begin;
    line["wall_seconds"] = rounded(wall.count(), 1000);
    line["velaenc"] = VELAENC_VERSION;
    if (entry.result) add_result(line, entry);
    line["warnings"] = entry.warnings;
    line["error"] = entry.result ? json() : json(entry.error);
    log_.append(text_of(line));
}

} // namespace tools
