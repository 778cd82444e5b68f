#include "velainfo/page.hpp"

#include "common/failure.hpp"
#include "parser/standard_tables.hpp"
#include "velainfo/page_parts.hpp" // made from page.html, page.css and page.js

#include <array>
#include <cmath>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>

namespace tools {
namespace {

constexpr float none = std::numeric_limits<float>::quiet_NaN();
using kind = panel::kind;

/// Rows of both channels, subband 0 first.
std::vector<std::string> subband_rows() {
    std::vector<std::string> rows;
    rows.reserve(64);
    for (int i = 0; i < 64; ++i)
        rows.push_back(std::string(i < 32 ? "left" : "right") + ", subband " + std::to_string(i % 32));
    return rows;
}

panel map(std::string name, std::string title, std::string unit, double lowest, double step, double low,
          double high) {
    return {std::move(name),
            std::move(title),
            std::move(unit),
            kind::map,
            subband_rows(),
            lowest,
            step,
            low,
            high};
}

std::vector<panel> stream_panels() {
    return {
        map("allocation", "Bit allocation", "bit a sample", 0, 1.0 / 15, 0, 8),
        map("scalefactors", "Scale factors", "dB", -119, 0.5, -100, 6),
        {"purpose",
         "Bits by purpose",
         "%",
         kind::stack,
         {"header", "CRC", "allocation", "scfsi", "scale factors", "samples", "ancillary", "unused"},
         0,
         100.0 / 250,
         0,
         100},
        {"bound", "Joint stereo bound", "subband", kind::lines, {"bound"}, 0, 0.25, 0, 32},
        {"level",
         "Level by the scale factors",
         "dB",
         kind::lines,
         {"left", "right"},
         -119,
         0.5,
         -100,
         6},
        {"marks",
         "CRC and damage",
         "",
         kind::marks,
         {"CRC right", "CRC wrong", "other damage"},
         0,
         1.0 / 250,
         0,
         1}};
}

std::vector<panel> comparison_panels() {
    return {map("source_level", "Level of the source", "dB", -119, 0.5, -100, 0),
            map("error", "Level of the error", "dB", -119, 0.5, -100, 0),
            map("snr", "Signal-to-noise ratio", "dB", -27, 0.5, 0, 60),
            map("nmr", "Noise-to-mask ratio", "dB", -90, 0.5, -30, 15)};
}

std::vector<panel> trace_panels() {
    return {map("smr", "Trace: signal-to-mask ratio", "dB", -60, 0.5, -20, 40),
            map("threshold", "Trace: masking threshold", "dB", -119, 0.5, -100, 0),
            map("mnr", "Trace: mask-to-noise ratio after allocation", "dB", -60, 0.5, -15, 30),
            {"left", "Trace: bits left over", "bit", kind::lines, {"left over"}, 0, 1, 0, 64}};
}

/// Power of every scale factor.
const std::array<float, 64> factor_power = [] {
    std::array<float, 64> power{};
    for (int i = 0; i < 63; ++i)
        power[static_cast<unsigned>(i)] = static_cast<float>(std::pow(scalefactor(i), 2));
    return power;
}();

float decibel(float power) {
    return power > 1e-12F ? 10 * std::log10(power) : -120.0F;
}

void put_allocation(const parsed_frame &frame, float *allocation, float *factors, float *level) {
    for (int ch = 0; ch < frame.channels(); ++ch) {
        float sum = 0;
        for (int sb = 0; sb < frame.sblimit; ++sb) {
            const int i = 32 * ch + sb, steps = frame.steps[ch][sb];
            allocation[i] = static_cast<float>(bits_per_sample(frame.layer, steps));
            if (steps == 0) continue;
            float mean = 0;
            int loudest = 63;
            for (int part = 0; part < frame.parts; ++part) {
                const int factor = frame.scalefactor[ch][part][sb];
                mean += factor_power[static_cast<unsigned>(factor)] / static_cast<float>(frame.parts);
                loudest = std::min(loudest, factor);
            }
            factors[i] = static_cast<float>(6.0206 - 2.00687 * loudest);
            sum += mean;
        }
        level[ch] = decibel(sum);
    }
}

/// `</` would end the script element.
std::string escaped(std::string text) {
    for (std::size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at))
        text.replace(at, 1, "\\u003c");
    return text;
}

} // namespace

stream_pictures::stream_pictures() : stream_(stream_panels()) {
}

void stream_pictures::add(std::uint64_t number, const parsed_frame &frame) {
    std::array<float, 64 + 64 + 8 + 1 + 2 + 3> values;
    values.fill(none);
    float *const shares = &values[128], *const bound = shares + 8, *const level = bound + 1,
                 *const marks = level + 2;
    if (frame.faults == 0) {
        put_allocation(frame, values.data(), &values[64], level);
        const bit_shares &b = frame.bits;
        const bool ancillary = (frame.remarks & remark_ancillary) != 0;
        const int bits[] = {b.header,       b.crc,     b.allocation,           b.scfsi,
                            b.scalefactors, b.samples, ancillary ? b.rest : 0, ancillary ? 0 : b.rest};
        for (int i = 0; i < 8; ++i)
            shares[i] = 100.0F * static_cast<float>(bits[i]) / static_cast<float>(8 * frame.bytes());
        if (frame.mode == 1) *bound = static_cast<float>(frame.bound);
    }
    const bool crc_wrong = (frame.faults & fault_crc) != 0;
    if (frame.crc == 1) {
        marks[0] = crc_wrong ? 0 : 1;
        marks[1] = crc_wrong ? 1 : 0;
    }
    marks[2] = (frame.faults & ~unsigned{fault_crc}) != 0 ? 1 : 0;
    stream_.add(number, values);
}

void stream_pictures::add(const compared_frame &frame) {
    if (!comparison_) comparison_.emplace(comparison_panels());
    std::array<float, 4 * 64> values;
    std::size_t at = 0;
    for (const auto *rows : {&frame.level, &frame.error, &frame.snr, &frame.nmr})
        for (const auto &channel : *rows)
            for (const float value : channel)
                values[at++] = value;
    comparison_->add(frame.number, values);
}

void stream_pictures::add_trace(const std::string &path) {
    std::ifstream file(path);
    if (!file) throw failure(exit_code::input, "cannot open " + path);
    trace_.emplace(trace_panels());
    std::string line;
    for (std::uint64_t number = 0; std::getline(file, line); ++number) {
        const auto frame = nlohmann::json::parse(line, nullptr, false);
        std::array<float, 3 * 64 + 1> values;
        values.fill(none);
        try {
            std::size_t first = 0;
            for (const char *name : {"smr", "threshold", "mnr"}) {
                const auto &channels = frame.at(name);
                for (std::size_t ch = 0; ch < std::min<std::size_t>(channels.size(), 2); ++ch)
                    for (std::size_t sb = 0; sb < std::min<std::size_t>(channels[ch].size(), 32); ++sb)
                        if (channels[ch][sb].is_number())
                            values[first + 32 * ch + sb] = channels[ch][sb].get<float>();
                first += 64;
            }
            values[first] = frame.at("left").get<float>();
        } catch (const nlohmann::json::exception &) {
            throw failure(exit_code::input, path + " is not what velaenc --trace writes: line "
                                                + std::to_string(number + 1));
        }
        trace_->add(number, values);
    }
}

void page::add(const stream_report &report, std::string text, stream_pictures &&pictures) {
    entries_.push_back({report, std::move(text), std::move(pictures)});
}

std::string page::html() {
    // Base64 of three bytes a column and row.
    constexpr std::size_t most_bytes = 4'200'000, bytes_a_cell = 4;
    std::size_t rows = 0;
    const auto each_timeline = [&](auto body) {
        for (entry &e : entries_) {
            body(e.pictures.stream_);
            if (e.pictures.comparison_) body(*e.pictures.comparison_);
            if (e.pictures.trace_) body(*e.pictures.trace_);
        }
    };
    each_timeline([&](const timeline &t) { rows += t.rows(); });
    const std::size_t columns =
        std::max<std::size_t>(most_bytes / bytes_a_cell / std::max<std::size_t>(rows, 1), 16);
    each_timeline([&](timeline &t) {
        const bool exact = t.stride() == 1 && t.columns() * rows * bytes_a_cell <= 3 * most_bytes;
        if (!exact) t.limit_columns(columns);
    });
    std::string streams(1, '[');
    for (const entry &e : entries_) {
        const stream_report &r = e.report;
        nlohmann::ordered_json events = nlohmann::ordered_json::array();
        for (const stream_event &event : r.events)
            events.push_back(
                {{"seconds", event.seconds}, {"damage", event.is_damage}, {"text", event.text}});
        const int samples = r.usual(stream_report::layer) == 1 ? 384 : 1152;
        const nlohmann::ordered_json head{
            {"name", r.name},
            {"text", e.text},
            {"frames", r.frames},
            {"frame_seconds", static_cast<double>(samples) / r.usual(stream_report::rate)},
            {"channels", r.channels},
            {"events", events}};
        std::string object =
            head.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
        object.back() = ',';
        object += "\"panels\":[";
        for (const timeline *t : {&std::as_const(e.pictures.stream_),
                                  e.pictures.comparison_ ? &*e.pictures.comparison_ : nullptr,
                                  e.pictures.trace_ ? &*e.pictures.trace_ : nullptr}) {
            if (t == nullptr) continue;
            const std::string panels = t->json();
            if (object.back() != '[') object += ',';
            object.append(panels, 1, panels.size() - 2);
        }
        if (streams.size() > 1) streams += ',';
        streams += object + "]}";
    }
    std::string text = page_html;
    const auto fill = [&](const std::string &place, const std::string &with) {
        text.replace(text.find(place), place.size(), with);
    };
    fill("/*css*/", page_css);
    fill("/*data*/", escaped(streams + ']'));
    fill("/*js*/", page_js);
    return text;
}

} // namespace tools
