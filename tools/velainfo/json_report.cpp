#include "velainfo/json_report.hpp"

#include "velainfo/decibels.hpp"

#include <cmath>
#include <nlohmann/json.hpp>

namespace tools {
namespace {

using json = nlohmann::ordered_json;

/// Raised when a field changes its meaning or goes; new ones may come without.
constexpr int json_schema = 1;
constexpr const char *tool = "velainfo " VELA_VERSION;

/// Without the noise of binary fractions: 192, not 192.00000000000003.
double rounded(double value) {
    return std::round(value * 1e6) / 1e6;
}

/// A field's value as JSON has it: names for modes and emphases, true and false for single bits.
json value_of(stream_report::field which, int value) {
    switch (which) {
    case stream_report::mode:
    case stream_report::emphasis:
        return value_text(which, value);
    case stream_report::crc:
    case stream_report::private_bit:
    case stream_report::copyright:
    case stream_report::original:
        return value != 0;
    default:
        return value;
    }
}

json header_of(const stream_report &r) {
    json header;
    for (std::size_t i = 0; i < stream_report::fields; ++i) {
        const auto which = static_cast<stream_report::field>(i);
        json frames = json::array();
        for (const auto &[value, count] : r.values[i])
            frames.push_back({{"value", value_of(which, value)}, {"frames", count}});
        header[field_names[i]] = {{"value", value_of(which, r.usual(which))},
                                  {"constant", r.is_constant(which)},
                                  {"counts", frames}};
    }
    return header;
}

json bits_of(const bit_totals &b) {
    return {{"header", b.header},
            {"crc", b.crc},
            {"allocation", b.allocation},
            {"scfsi", b.scfsi},
            {"scalefactors", b.scalefactors},
            {"samples", b.samples},
            {"ancillary", b.ancillary},
            {"unused", b.unused}};
}

json rows_of(const double (&values)[2][32], int channels, int count, double divisor) {
    json rows = json::array();
    for (int ch = 0; ch < channels; ++ch) {
        rows.push_back(json::array());
        for (int sb = 0; sb < count; ++sb)
            rows.back().push_back(rounded(values[ch][sb] / divisor));
    }
    return rows;
}

json events_of(const stream_report &r) {
    json events = json::array();
    for (const stream_event &e : r.events)
        events.push_back({{"kind", e.kind},
                          {"damage", e.is_damage},
                          {"offset", e.offset},
                          {"length", e.length},
                          {"frame", e.frame},
                          {"seconds", rounded(e.seconds)},
                          {"text", e.text},
                          {"frames", e.frames}});
    return events;
}

json jumps_of(const comparison_totals &c) {
    json jumps = json::array();
    for (const source_jump &jump : c.jumps)
        jumps.push_back({{"frame", jump.frame}, {"samples", jump.samples}});
    return jumps;
}

json comparison_of(const comparison_totals &c) {
    return {{"source", c.name},
            {"gain_db", rounded(c.gain_db)},
            {"inverted", c.inverted},
            {"swapped", c.swapped},
            {"source_begin", rounded(c.source_begin)},
            {"source_end", rounded(c.source_end)},
            {"source_seconds", c.source_seconds ? json(rounded(*c.source_seconds)) : json()},
            {"outside", c.outside},
            {"others", c.others},
            {"jumps", jumps_of(c)},
            {"offset", c.offset},
            {"correlation", rounded(c.correlation)},
            {"frames", c.frames},
            {"snr", rounded(c.snr)},
            {"mean_nmr", rounded(c.mean_nmr)},
            {"worst_nmr", rounded(c.worst_nmr)},
            {"clipped", c.clipped},
            {"subband_level", rows_of(c.subband_level, c.channels, c.sblimit, 1)},
            {"subband_snr", rows_of(c.subband_snr, c.channels, c.sblimit, 1)},
            {"subband_nmr", rows_of(c.subband_nmr, c.channels, c.sblimit, 1)}};
}

json measured_of(const sound_report &s) {
    const auto figure = [](const std::optional<double> &value) {
        return value ? json(rounded(*value)) : json();
    };
    json silence = json::array(), peak = json::array(), rms = json::array(), dead = json::array();
    for (const silent_stretch &stretch : s.silence)
        silence.push_back({{"begin", rounded(stretch.begin)}, {"seconds", rounded(stretch.seconds)}});
    for (std::size_t ch = 0; ch < static_cast<std::size_t>(s.channels); ++ch) {
        peak.push_back(rounded(s.peak[ch]));
        rms.push_back(rounded(s.rms[ch]));
        dead.push_back(s.is_dead[ch]);
    }
    return {{"loudness", figure(s.loudness.integrated)},
            {"range", rounded(s.loudness.range)},
            {"momentary", figure(s.loudness.momentary)},
            {"short_term", figure(s.loudness.short_term)},
            {"true_peak", figure(s.loudness.true_peak)},
            {"peak", peak},
            {"rms", rms},
            {"dead", dead},
            {"correlation", figure(s.correlation)},
            {"clipped", s.clipped},
            {"longest_silence", rounded(s.longest_silence)},
            {"silence", silence}};
}

std::string line_of(const json &object) {
    // Names of files need not be UTF-8.
    return object.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

template <class Text>
json counts_of(const std::map<unsigned, std::uint64_t> &counts, Text text) {
    json object = json::object();
    for (const auto &[bit, count] : counts)
        object[std::string(text(bit))] = count;
    return object;
}

} // namespace

std::string json_of(const stream_report &r, const comparison_totals *compared,
                    const sound_report *sound) {
    json bounds = json::array(), texts = json::array(), broken = json::array();
    for (const violation &v : r.violations) {
        texts.push_back(v.text);
        broken.push_back({{"rule", v.rule},
                          {"text", v.text},
                          {"offset", v.offset},
                          {"frame", v.frame},
                          {"seconds", rounded(v.seconds)}});
    }
    for (const auto &[bound, count] : r.bounds)
        bounds.push_back({{"bound", bound}, {"frames", count}});
    json object{
        {"schema", json_schema},
        {"tool", tool},
        {"file", r.name},
        {"container", r.container.name},
        {"bytes", r.bytes},
        {"frames", r.frames},
        {"seconds", rounded(r.seconds())},
        {"average_kbps", rounded(r.average_kbps())},
        {"joint", r.values[stream_report::mode].contains(1)},
        {"header", header_of(r)},
        {"padding",
         {{"frames", r.padded},
          {"needed", r.padding.needed},
          {"exact", r.padding.is_exact()},
          {"worst_slots", rounded(r.padding.worst)}}},
        {"crc", {{"right", r.crc_right}, {"wrong", r.crc_wrong}}},
        {"bounds", bounds},
        {"bits", bits_of(r.bits)},
        {"scfsi", r.scfsi},
        {"allocation", rows_of(r.sample_bits, r.channels, r.sblimit, static_cast<double>(r.counted))},
        {"remarks", counts_of(r.remarks, remark_text)},
        {"faults", counts_of(r.faults, fault_text)},
        {"sound", r.is_sound()},
        {"damage_count", r.damage_count},
        {"damaged_frames", r.damaged_frames},
        {"lost_bytes", r.lost_bytes},
        {"event_count", r.event_count},
        {"events", events_of(r)},
        {"violations", texts},
        {"broken", broken}};
    if (r.container.track) object["track"] = *r.container.track;
    if (sound != nullptr) object["measured"] = measured_of(*sound);
    if (compared != nullptr) object["comparison"] = comparison_of(*compared);
    return line_of(object);
}

std::string json_of(const stream_difference &d) {
    json files = json::array(), first = json::array(), fields = json::object(), places = json::array();
    for (const stream_report &r : d.reports) {
        files.push_back({{"file", r.name},
                         {"container", r.container.name},
                         {"bytes", r.bytes},
                         {"frames", r.frames},
                         {"seconds", rounded(r.seconds())},
                         {"damage_count", r.damage_count},
                         {"outside", r.bytes - r.frame_bytes}});
        if (r.container.track) files.back()["track"] = *r.container.track;
    }
    for (const field_difference &f : d.first)
        first.push_back({{"field", f.field}, {"place", f.place}, {"values", f.values}});
    for (const auto &[name, frames] : d.fields)
        fields[name] = frames;
    for (const difference_place &p : d.places)
        places.push_back({{"kind", p.kind},
                          {"frames", p.frames},
                          {"frame", p.frame},
                          {"offset", p.offset},
                          {"seconds", {rounded(p.seconds[0]), rounded(p.seconds[1])}},
                          {"fields", p.fields}});
    json object{{"schema", json_schema}, {"tool", tool},
                {"files", files},        {"same", d.is_same()},
                {"equal", d.equal},      {"changed", d.changed},
                {"alone", d.alone},      {"first", first},
                {"fields", fields},      {"place_count", d.place_count},
                {"places", places}};
    const difference_noise &n = d.noise;
    object["noise"] = {{"frames", n.frames}, {"noisy", n.noisy}};
    if (n.noisy > 0)
        object["noise"].update({{"level", rounded(n.level())},
                                {"snr", rounded(n.snr())},
                                {"worst", rounded(decibels(n.worst))},
                                {"worst_frame", n.worst_frame}});
    if (!d.unlike.empty()) object["unlike"] = d.unlike;
    if (d.sound)
        object["sound"] = {{"offset", d.sound->offset},
                           {"correlation", rounded(d.sound->correlation)},
                           {"gain_db", rounded(d.sound->gain_db)},
                           {"inverted", d.sound->inverted},
                           {"swapped", d.sound->swapped},
                           {"jumps", jumps_of(*d.sound)}};
    return line_of(object);
}

std::string json_of_unreadable(const std::string &name, const std::string &why) {
    return line_of({{"schema", json_schema}, {"tool", tool}, {"file", name}, {"error", why}});
}

std::string json_of(const stream_report &before, std::uint64_t offset, const parsed_frame &frame) {
    const bit_shares &b = frame.bits;
    json faults = json::array(), allocation = json::array(), scalefactors = json::array();
    for (unsigned rest = frame.faults; rest != 0; rest &= rest - 1)
        faults.push_back(std::string(fault_text(rest)));
    for (int ch = 0; ch < frame.channels(); ++ch) {
        const auto &row = frame.allocation[ch];
        allocation.push_back(std::vector<int>(row, row + frame.sblimit));
        scalefactors.push_back(json::array());
        for (int part = 0; part < frame.parts; ++part)
            scalefactors.back().push_back(std::vector<int>(
                frame.scalefactor[ch][part], frame.scalefactor[ch][part] + frame.sblimit));
    }
    json object{{"file", before.name},
                {"frame", before.frames},
                {"offset", offset},
                {"bytes", frame.bytes()},
                {"seconds", rounded(before.seconds())},
                {"kbps", frame.kbps},
                {"padding", frame.padding},
                {"mode", mode_text(frame.mode)},
                {"bound", frame.bound},
                {"bits",
                 {{"header", b.header},
                  {"crc", b.crc},
                  {"allocation", b.allocation},
                  {"scfsi", b.scfsi},
                  {"scalefactors", b.scalefactors},
                  {"samples", b.samples},
                  {"rest", b.rest}}},
                {"allocation", allocation},
                {"scalefactors", scalefactors},
                {"faults", faults}};
    if (frame.crc == 1) object["crc_right"] = (frame.faults & fault_crc) == 0;
    return line_of(object);
}

} // namespace tools
