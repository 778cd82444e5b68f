#include "velainfo/trace_reader.hpp"

#include "common/failure.hpp"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>

namespace tools {
namespace {

/// Whether a line is about this frame; of a damaged one nothing can be said.
bool describes(const nlohmann::json &line, const parsed_frame &frame) {
    if (frame.faults != 0) return true;
    const auto &channels = line.at("allocation");
    for (std::size_t ch = 0; ch < channels.size() && ch < 2; ++ch)
        for (std::size_t sb = 0; sb < channels[ch].size() && sb < 32; ++sb)
            if (channels[ch][sb].get<int>() != frame.allocation[ch][sb]) return false;
    return static_cast<int>(channels.size()) == frame.channels()
           && line.at("bits").get<int>() == 8 * frame.bytes();
}

} // namespace

trace_reader::trace_reader(const std::string &path) : path_(path), file_(path) {
    if (!file_ || std::filesystem::is_directory(path))
        throw failure(exit_code::input, "cannot read the trace " + path);
}

void trace_reader::refuse(const std::string &why) const {
    throw failure(exit_code::input, path_ + ' ' + why);
}

trace_values trace_reader::next(const parsed_frame &frame) {
    std::string line;
    if (!std::getline(file_, line))
        refuse("is no trace of this stream: it ends after " + std::to_string(lines_) + " frames");
    const std::string place = ": line " + std::to_string(++lines_);
    trace_values values;
    values.fill(std::numeric_limits<float>::quiet_NaN());
    try {
        const auto object = nlohmann::json::parse(line);
        std::size_t first = 0;
        for (const char *name : {"smr", "threshold", "mnr"}) {
            const auto &channels = object.at(name);
            for (std::size_t ch = 0; ch < std::min<std::size_t>(channels.size(), 2); ++ch)
                for (std::size_t sb = 0; sb < std::min<std::size_t>(channels[ch].size(), 32); ++sb)
                    if (channels[ch][sb].is_number())
                        values[first + 32 * ch + sb] = channels[ch][sb].get<float>();
            first += 64;
        }
        values[first] = object.at("left").get<float>();
        if (!describes(object, frame)) refuse("is the trace of another stream" + place);
    } catch (const nlohmann::json::exception &) {
        refuse("is not what velaenc --trace writes" + place);
    }
    return values;
}

void trace_reader::finish() {
    std::string line;
    if (std::getline(file_, line))
        refuse("is no trace of this stream, which has only " + std::to_string(lines_) + " frames");
}

} // namespace tools
