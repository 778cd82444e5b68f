#include "velaenc/batch_report.hpp"

#include "output/file_digest.hpp"
#include "velaenc/stream_settings.hpp"

#include <array>
#include <fstream>
#include <nlohmann/json.hpp>

namespace tools {
namespace {

using json = nlohmann::ordered_json;

/// Names need not be UTF-8, JSON has to be.
std::string text_of(const json &value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

json settings_of(const file_result &result) {
    constexpr std::array modes{"stereo", "joint", "dual", "mono"};
    constexpr std::array emphases{"none", "50/15", "", "j17"};
    const mpeg_a_settings &settings = result.settings;
    return {{"layer", static_cast<int>(settings.audio_layer)},
            {"mode", modes.at(static_cast<std::size_t>(settings.audio_mode))},
            {"kbps", kbit_of(settings)},
            {"rate", result.rate},
            {"crc", settings.error_protection != 0},
            {"emphasis", emphases.at(static_cast<std::size_t>(settings.emphasis))},
            {"private", static_cast<int>(settings.extension)},
            {"copyright", static_cast<int>(settings.copyright)},
            {"original", static_cast<int>(settings.original)}};
}

} // namespace

batch_report::batch_report(const std::string &path, std::vector<std::string> options)
    : path_(path), options_(std::move(options)), log_(path) {
}

void batch_report::load() {
    std::ifstream file(path_);
    const json own = options_;
    for (std::string line; std::getline(file, line);) {
        const json entry = json::parse(line, nullptr, false);
        if (!entry.is_object() || !entry.contains("output") || !entry.contains("options")) continue;
        if (!entry.contains("error") || !entry["error"].is_null()) continue;
        earlier_[text_of(entry["output"])] = entry["options"] == own;
    }
}

std::optional<bool> batch_report::has_same_options(const std::string &output) const {
    const auto found = earlier_.find(text_of(output));
    return found == earlier_.end() ? std::nullopt : std::optional(found->second);
}

void batch_report::add(const report_entry &entry) {
    json line{{"input", entry.input}, {"output", entry.output}, {"options", options_}};
    line["status"] = !entry.result ? "failed" : entry.was_complete ? "complete" : "encoded";
    if (entry.result) {
        line["settings"] = settings_of(*entry.result);
        line["frames"] = entry.result->frames;
        line["seconds"] = entry.result->seconds();
        if (!entry.was_complete) line["clipped_samples"] = entry.result->clipped.samples;
        line["sha256"] = sha256_of(entry.output);
    }
    line["warnings"] = entry.warnings;
    line["error"] = entry.result ? json() : json(entry.error);
    log_.append(text_of(line));
}

} // namespace tools
