#include "velainfo/page.hpp"

#include "common/printable.hpp"
#include "parser/standard_tables.hpp"
#include "velainfo/decibels.hpp"
#include "velainfo/page_parts.hpp" // made from page.html, page.css and page.js

#include <array>
#include <cmath>
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

std::vector<panel> spectrum_panels() {
    return {map("spectrum", "Spectrum", "dB", -119, 0.5, -100, 0)};
}

std::vector<panel> loudness_panels() {
    return {{"loudness", "Momentary loudness", "LUFS", kind::lines, {"loudness"}, -120, 0.5, -60, 0}};
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
                mean += static_cast<float>(std::pow(scalefactor(factor), 2))
                        / static_cast<float>(frame.parts);
                loudest = std::min(loudest, factor);
            }
            factors[i] = static_cast<float>(6.0206 - 2.00687 * loudest);
            sum += mean;
        }
        level[ch] = level_of(sum);
    }
}

/// The text with each of the places, which stand in it in that order, replaced; what comes in is not
/// looked at again.
std::string filled(std::string_view text,
                   const std::vector<std::pair<std::string_view, std::string>> &places) {
    std::string out;
    for (const auto &[place, with] : places) {
        const std::size_t at = text.find(place);
        out.append(text.substr(0, at)).append(with);
        text.remove_prefix(at + place.size());
    }
    return out.append(text);
}

std::string as_html(const std::string &text) {
    std::string out;
    for (const char c : text)
        out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    return out;
}

/// `</` would end the script element.
std::string escaped(std::string text) {
    for (std::size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at))
        text.replace(at, 1, "\\u003c");
    return text;
}

/// What the page says of a stream beside its pictures.
nlohmann::ordered_json head_of(const stream_report &r, const std::string &text) {
    nlohmann::ordered_json events = nlohmann::ordered_json::array();
    for (const stream_event &event : r.events)
        events.push_back(
            {{"seconds", event.seconds}, {"damage", event.is_damage}, {"text", event.text}});
    nlohmann::ordered_json violations = nlohmann::ordered_json::array();
    for (const violation &broken : r.violations)
        violations.push_back({{"seconds", broken.seconds}, {"text", broken.text}});
    return {{"name", r.name},
            {"text", text},
            {"frames", r.frames},
            {"seconds", r.seconds()},
            {"frame_seconds", r.seconds() / static_cast<double>(r.frames)},
            {"rate", r.usual(stream_report::rate)},
            {"channels", r.channels},
            {"damage_count", r.damage_count},
            {"damaged_frames", r.damaged_frames},
            {"violations", violations},
            {"events", events}};
}

} // namespace

stream_pictures::stream_pictures() : stream_(stream_panels()) {
}

void stream_pictures::add(std::uint64_t number, const parsed_frame &frame,
                          const frame_subbands *subbands) {
    if (subbands != nullptr && frame.faults == 0) add_spectrum(number, frame, *subbands);
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

void stream_pictures::add_spectrum(std::uint64_t number, const parsed_frame &frame,
                                   const frame_subbands &subbands) {
    if (!spectrum_) spectrum_.emplace(spectrum_panels());
    std::array<float, 64> values;
    values.fill(none);
    const int steps = 12 * frame.parts;
    for (int ch = 0; ch < frame.channels(); ++ch) {
        for (int sb = 0; sb < 32; ++sb) {
            float sum = 0;
            for (int i = 0; i < steps; ++i)
                sum += subbands[ch][i][sb] * subbands[ch][i][sb];
            values[static_cast<unsigned>(32 * ch + sb)] = level_of(2 * sum / static_cast<float>(steps));
        }
    }
    spectrum_->add(number, values);
}

void stream_pictures::add(const sound_report &sound, const stream_report &report) {
    if (sound.momentary.empty()) return;
    loudness_.emplace(loudness_panels());
    const double step = report.seconds() / static_cast<double>(report.frames);
    for (std::uint64_t frame = 0; frame < report.frames; ++frame) {
        const auto at =
            static_cast<std::size_t>(static_cast<double>(frame) * step / sound.step_seconds);
        if (at < sound.momentary.size()) loudness_->add(frame, std::span(&sound.momentary[at], 1));
    }
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

void stream_pictures::add(std::uint64_t number, const trace_values &frame) {
    if (!trace_) trace_.emplace(trace_panels());
    trace_->add(number, frame);
}

bool page::is_own(const file_view &file) {
    // The head of the page, as page.html has it.
    std::array<char, 512> head{};
    const std::size_t size = file(0, std::as_writable_bytes(std::span(head)));
    return std::string_view(head.data(), size).find("name=\"generator\" content=\"velainfo\"")
           != std::string_view::npos;
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
            if (e.pictures.loudness_) body(*e.pictures.loudness_);
            if (e.pictures.spectrum_) body(*e.pictures.spectrum_);
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
    std::string streams(1, '['), names, texts;
    for (const entry &e : entries_) {
        const stream_report &r = e.report;
        names += (names.empty() ? "" : ", ") + printable(r.name);
        texts += e.text + '\n';
        std::string object =
            head_of(r, e.text).dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
        object.back() = ',';
        object += "\"panels\":[";
        const stream_pictures &p = e.pictures;
        const auto pointer = [](const std::optional<timeline> &t) { return t ? &*t : nullptr; };
        for (const timeline *t : {pointer(p.loudness_), pointer(p.spectrum_), &p.stream_,
                                  pointer(p.comparison_), pointer(p.trace_)}) {
            if (t == nullptr) continue;
            const std::string panels = t->json();
            if (object.back() != '[') object += ',';
            object.append(panels, 1, panels.size() - 2);
        }
        if (streams.size() > 1) streams += ',';
        streams += object + "]}";
    }
    return filled(page_html, {{"/*title*/", as_html(names)},
                              {"/*css*/", page_css},
                              {"/*report*/", as_html(texts)},
                              {"/*data*/", escaped(streams + ']')},
                              {"/*js*/", page_js}});
}

} // namespace tools
