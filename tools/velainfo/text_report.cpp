#include "velainfo/text_report.hpp"

#include "common/printable.hpp"
#include "jobs/progress.hpp"
#include "velainfo/decibels.hpp"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

namespace tools {

std::string format(const char *pattern, ...) {
    std::array<char, 400> text;
    std::va_list arguments;
    va_start(arguments, pattern);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer misses va_start
    std::vsnprintf(text.data(), text.size(), pattern, arguments);
    va_end(arguments);
    return text.data();
}

namespace {

using report_field = stream_report::field;
using number = unsigned long long;

std::string row(const char *label, const std::string &text) {
    return format("  %-14s", label) + text + "\n";
}

std::string heading(const stream_report &r) {
    std::string text = printable(r.name) + ": MPEG-" + std::to_string(r.usual(stream_report::version))
                       + " Layer " + value_text(stream_report::layer, r.usual(stream_report::layer))
                       + ", " + std::to_string(r.usual(stream_report::rate)) + " Hz, ";
    text += r.values[stream_report::mode].contains(1) ? mode_text(1)
                                                      : mode_text(r.usual(stream_report::mode));
    text += r.is_constant(stream_report::kbps)
                ? ", " + std::to_string(r.usual(stream_report::kbps)) + " kbit/s"
                : format(", %.1f kbit/s on average", r.average_kbps());
    if (r.container.name == "wav") text += ", in a WAV file";
    if (r.container.track)
        text += ", track " + std::to_string(*r.container.track) + " of " + r.container.description;
    return text + "\n";
}

/// "448 (12), 384 (3)": values and how many frames have them.
std::string counts_text(const stream_report &r, report_field which) {
    std::string text;
    for (const auto &[value, count] : r.values[which])
        text += (text.empty() ? "" : ", ") + value_text(which, value)
                + format(" (%llu frames)", static_cast<number>(count));
    return text;
}

std::string header_rows(const stream_report &r) {
    std::string constant, varying;
    for (int i = 0; i < stream_report::fields; ++i) {
        const auto which = static_cast<report_field>(i);
        const char *const name = field_names[static_cast<unsigned>(i)];
        if (!r.is_constant(which))
            varying +=
                row(varying.empty() ? "changing" : "", std::string(name) + " " + counts_text(r, which));
        else if (which != stream_report::version && which != stream_report::layer
                 && which != stream_report::rate && which != stream_report::kbps
                 && which != stream_report::mode)
            constant += (constant.empty() ? "" : ", ") + std::string(name) + " "
                        + value_text(which, r.usual(which));
    }
    return row("header", constant) + varying;
}

std::string padding_text(const stream_report &r) {
    if (!r.padding.needed) return r.padded == 0 ? "none: frames are whole" : "without need";
    std::string text =
        format("%llu of %llu frames, ", static_cast<number>(r.padded), static_cast<number>(r.frames));
    return text
           + (r.padding.is_exact()
                  ? "the exact sequence"
                  : format("up to %.1f slots off the exact sequence", r.padding.worst));
}

std::string bits_text(const stream_report &r) {
    const bit_totals &b = r.bits;
    const std::pair<const char *, std::uint64_t> shares[] = {{"header", b.header},
                                                             {"CRC", b.crc},
                                                             {"allocation", b.allocation},
                                                             {"scfsi", b.scfsi},
                                                             {"scale factors", b.scalefactors},
                                                             {"samples", b.samples},
                                                             {"ancillary", b.ancillary},
                                                             {"unused", b.unused}};
    double all = 0;
    for (const auto &[name, bits] : shares)
        all += static_cast<double>(bits);
    std::string text;
    for (const auto &[name, bits] : shares)
        if (bits > 0)
            text += (text.empty() ? "" : ", ") + std::string(name)
                    + format(" %.1f %%", 100 * static_cast<double>(bits) / all);
    return text;
}

std::string bound_text(const stream_report &r) {
    std::string text;
    std::uint64_t shared = 0;
    for (const auto &[bound, count] : r.bounds) {
        text +=
            format("%s%d (%llu frames)", text.empty() ? "" : ", ", bound, static_cast<number>(count));
        shared += count;
    }
    return text + format(", none (%llu)", static_cast<number>(r.counted - shared));
}

std::string subband_row(const char *label, const double (&values)[32], int count) {
    std::string text;
    for (int sb = 0; sb < count; ++sb)
        text +=
            format("%6.1f", values[sb]) + (sb == 15 && count > 16 ? "\n" + std::string(16, ' ') : "");
    return row(label, text);
}

std::string allocation_rows(const stream_report &r) {
    std::string text = row("allocation", "bits a sample on average, by subband");
    for (int ch = 0; ch < r.channels; ++ch) {
        double average[32];
        for (int sb = 0; sb < 32; ++sb)
            average[sb] = r.sample_bits[ch][sb] / static_cast<double>(r.counted);
        text += subband_row(r.channels == 1 ? "" : ch == 0 ? "  left" : "  right", average, r.sblimit);
    }
    return text;
}

std::string selection_text(const stream_report &r) {
    double all = 0;
    for (const auto count : r.scfsi)
        all += static_cast<double>(count);
    if (all == 0) return "nothing is allocated";
    constexpr const char *meanings[] = {"three", "two (1+2, 3)", "one", "two (1, 2+3)"};
    std::string text;
    for (std::size_t i = 0; i < 4; ++i)
        text += format("%s%s %.1f %%", i == 0 ? "" : ", ", meanings[i],
                       100 * static_cast<double>(r.scfsi[i]) / all);
    return text;
}

/// "frame 5, 0.120 s, byte 3360", "frames 5 to 9, ..."
std::string place_text(std::uint64_t frame, std::uint64_t frames, double seconds,
                       std::uint64_t offset) {
    std::string text = format("frame %llu", static_cast<number>(frame));
    if (frames > 1)
        text = format("frames %llu to %llu", static_cast<number>(frame),
                      static_cast<number>(frame + frames - 1));
    return text + format(", %.3f s, byte %llu", seconds, static_cast<number>(offset));
}

std::string event_rows(const stream_report &r) {
    std::string text;
    for (const stream_event &e : r.events)
        text += "    " + place_text(e.frame, e.frames, e.seconds, e.offset) + ": " + e.text
                + (e.is_damage ? "\n" : " (no damage)\n");
    if (r.event_count > r.events.size())
        text += format("    and %llu more\n", static_cast<number>(r.event_count - r.events.size()));
    return text;
}

std::string verdict_rows(const stream_report &r) {
    std::string text;
    for (const auto &[bit, count] : r.remarks)
        text += row("remark", std::string(remark_text(bit))
                                  + format(" (%llu frames)", static_cast<number>(count)));
    for (const violation &broken : r.violations)
        text +=
            row("rule",
                broken.text
                    + (broken.frame == 0
                           ? ""
                           : ", from " + place_text(broken.frame, 1, broken.seconds, broken.offset)));
    if (r.is_sound()) return text + row("damage", "none") + event_rows(r);
    return text
           + row("damage",
                 format("%llu places, %llu frames, %llu bytes outside of frames",
                        static_cast<number>(r.damage_count), static_cast<number>(r.damaged_frames),
                        static_cast<number>(r.lost_bytes)))
           + event_rows(r);
}

std::string sound_rows(const sound_report &s) {
    const auto figure = [](const std::optional<double> &value, const char *unit) {
        return value ? format("%.1f %s", *value, unit) : "none";
    };
    const loudness_figures &l = s.loudness;
    std::string text = row("loudness", figure(l.integrated, "LUFS") + format(", range %.1f LU", l.range)
                                           + ", momentary up to " + figure(l.momentary, "LUFS")
                                           + ", short-term up to " + figure(l.short_term, "LUFS"));
    text += row("peak", "true peak " + figure(l.true_peak, "dBTP")
                            + format(", %llu samples clipped", static_cast<number>(s.clipped)));
    for (std::size_t ch = 0; ch < static_cast<std::size_t>(s.channels); ++ch)
        text += row(s.channels == 1 ? "level"
                    : ch == 0       ? "left"
                                    : "right",
                    s.is_dead[ch] ? format("dead: never above %.0f dB", sound_report::silence_level)
                                  : format("peak %.1f dB, mean %.1f dB", s.peak[ch], s.rms[ch]));
    if (s.correlation) text += row("phase", format("correlation %+.3f", *s.correlation));
    std::string silence = format("%.1f s at most", s.longest_silence);
    for (const silent_stretch &stretch : s.silence)
        silence += "\n" + std::string(16, ' ') + format("%.1f s from ", stretch.seconds)
                   + clock_text(stretch.begin, 3);
    return text + row("silence", silence);
}

/// How else it differs from what it is compared with than by noise.
/// @param who  differs
std::string deviation_rows(const comparison_totals &c, const std::string &who) {
    std::string text;
    if (c.gain_db != 0) text += row("", "the gain of " + who + format(" is %+.2f dB", c.gain_db));
    if (c.inverted) text += row("", "the polarity of " + who + " is inverted");
    if (c.swapped) text += row("", "left and right are exchanged");
    for (const source_jump &jump : c.jumps)
        text += row("", format("from frame %llu on %lld samples ", static_cast<number>(jump.frame),
                               static_cast<long long>(std::abs(jump.samples)))
                            + (jump.samples > 0 ? "are missing" : "are doubled"));
    return text;
}

std::string comparison_rows(const comparison_totals &c) {
    std::string text =
        row("source", printable(c.name) + format(", %+lld samples", static_cast<long long>(c.offset))
                          + format(", correlation %.4f", c.correlation))
        + deviation_rows(c, "the stream");
    text += row(
        "",
        "compared from " + clock_text(c.source_begin, 3) + " to " + clock_text(c.source_end, 3)
            + (c.source_seconds ? " of " + clock_text(*c.source_seconds, 3) : "")
            + (c.outside > 0 ? format("; %llu frames lie outside of it", static_cast<number>(c.outside))
                             : "")
            + (c.others > 0 ? format("; %llu frames are of another kind", static_cast<number>(c.others))
                            : ""));
    text += row("error",
                format("%.1f dB below the source over %llu frames; noise-to-mask %.1f dB on average, "
                       "%.1f dB at worst",
                       c.snr, static_cast<number>(c.frames), c.mean_nmr, c.worst_nmr));
    text += row("clipped", format("%llu samples", static_cast<number>(c.clipped)));
    text += row("subbands", "signal-to-noise ratio and noise-to-mask ratio in dB");
    for (int ch = 0; ch < c.channels; ++ch) {
        text += subband_row("  SNR", c.subband_snr[ch], c.sblimit);
        text += subband_row("  NMR", c.subband_nmr[ch], c.sblimit);
    }
    return text;
}

std::string count_text(std::uint64_t count, const char *what) {
    return format("%llu %s%s", static_cast<number>(count), what, count == 1 ? "" : "s");
}

/// "lost: frames 50 to 51 of A, 1.200 s, byte 28800 (B: frame 50, 1.200 s, byte 28800)"
std::string place_text(const difference_place &p) {
    const std::size_t side = p.kind == "doubled" || p.kind == "added" ? 1 : 0, other = 1 - side;
    std::string text = p.kind + ": "
                       + place_text(p.frame[side], p.frames, p.seconds[side], p.offset[side]) + " of "
                       + "AB"[side] + " (" + "AB"[other] + ": "
                       + place_text(p.frame[other], 1, p.seconds[other], p.offset[other]) + ")";
    for (std::size_t i = 0; i < p.fields.size(); ++i)
        text += (i == 0 ? " in " : ", ") + p.fields[i];
    return text;
}

std::string noise_rows(const stream_difference &d) {
    const difference_noise &n = d.noise;
    std::string text;
    if (!d.unlike.empty()) text += row("sound", d.unlike);
    if (d.sound) {
        const comparison_totals &s = *d.sound;
        text += row("sound", format("B is A's from sample %+lld on, correlation %.4f",
                                    static_cast<long long>(s.offset), s.correlation));
        text += deviation_rows(s, "B");
    }
    if (n.frames == 0) return text;
    if (n.noisy == 0) return text + row("noise", "none in " + count_text(n.frames, "frame"));
    return text
           + row("noise", format("%.1f dB of full scale over ", n.level())
                              + count_text(n.frames, "frame")
                              + format(", %.1f dB in frame %llu of B; %.1f dB below the sound in ",
                                       decibels(n.worst), static_cast<number>(n.worst_frame), n.snr())
                              + count_text(n.noisy, "frame"));
}

} // namespace

std::string text_of(const stream_difference &d) {
    const auto &[a, b] = d.reports;
    std::string text = printable(a.name) + " and " + printable(b.name);
    if (d.is_same())
        text += " have the same " + count_text(d.equal, "frame") + "\n";
    else
        text += " differ: " + count_text(d.changed, "frame") + " changed, "
                + format("%llu only in the first, %llu only in the second, %llu the same\n",
                         static_cast<number>(d.alone[0]), static_cast<number>(d.alone[1]),
                         static_cast<number>(d.equal));
    for (std::size_t side = 0; side < 2; ++side) {
        const stream_report &r = d.reports[side];
        std::string line = heading(r);
        line.pop_back();
        text += row(side == 0 ? "A" : "B",
                    line + ", " + clock_text(r.seconds(), 3) + ", " + count_text(r.frames, "frame")
                        + (r.is_sound() ? "" : ", damage in " + count_text(r.damage_count, "place"))
                        + (r.bytes == r.frame_bytes ? ""
                                                    : ", " + count_text(r.bytes - r.frame_bytes, "byte")
                                                          + " outside of frames"));
    }
    if (d.first_place) {
        const difference_place &p = *d.first_place;
        for (const field_difference &field : d.first)
            text += row(&field == &d.first.front() ? "first" : "",
                        (&field == &d.first.front()
                             ? place_text(p.frame[0], 1, p.seconds[0], p.offset[0]) + " of A: "
                             : "")
                            + field.field + (field.place.empty() ? "" : ", " + field.place)
                            + (field.values[0].empty()
                                   ? ""
                                   : ": " + field.values[0] + " in A, " + field.values[1] + " in B"));
        std::string fields;
        for (const auto &[name, frames] : d.fields)
            fields +=
                (fields.empty() ? "" : ", ") + name + format(" (%llu)", static_cast<number>(frames));
        text += row("fields", fields);
    }
    text += noise_rows(d);
    if (d.places.empty()) return text;
    text += row("places", std::to_string(d.place_count));
    for (const difference_place &p : d.places)
        text += "    " + place_text(p) + "\n";
    if (d.place_count > d.places.size())
        text += format("    and %llu more\n", static_cast<number>(d.place_count - d.places.size()));
    return text;
}

std::string text_of(const stream_report &r, const comparison_totals *compared,
                    const sound_report *sound) {
    std::string text = heading(r);
    text += row("length", format("%.3f s, %llu frames, %llu bytes", r.seconds(),
                                 static_cast<number>(r.frames), static_cast<number>(r.bytes)));
    text += header_rows(r);
    text += row("padding", padding_text(r));
    text += row("CRC", r.crc_right + r.crc_wrong == 0
                           ? "none"
                           : format("%llu right, %llu wrong", static_cast<number>(r.crc_right),
                                    static_cast<number>(r.crc_wrong)));
    if (!r.bounds.empty()) text += row("joint bound", bound_text(r));
    text += row("bits", bits_text(r));
    if (r.values[stream_report::layer].contains(2)) text += row("scale factors", selection_text(r));
    text += allocation_rows(r);
    if (sound != nullptr) text += sound_rows(*sound);
    if (compared != nullptr) text += comparison_rows(*compared);
    return text + verdict_rows(r);
}

std::string brief_of(const stream_report &r) {
    const char *const verdict = !r.is_sound() ? "damaged" : r.violations.empty() ? "sound" : "unfit";
    std::string text = format("%-11s ", verdict) + heading(r);
    text.pop_back();
    text += ", " + clock_text(r.seconds(), 3);
    if (!r.is_sound()) {
        const auto first = std::ranges::find_if(r.events, &stream_event::is_damage);
        if (first != r.events.end())
            text += "; " + place_text(first->frame, first->frames, first->seconds, first->offset) + ": "
                    + first->text;
    } else if (!r.violations.empty()) {
        text += "; " + r.violations.front().text;
    }
    return text + "\n";
}

std::string frame_line_heading() {
    return "frame offset bytes seconds kbps padding mode bound crc header crcbits allocation scfsi "
           "scalefactors samples rest faults\n";
}

std::string frame_line(const stream_report &before, std::uint64_t offset, const parsed_frame &frame) {
    const bit_shares &b = frame.bits;
    std::string line = format(
        "%llu %llu %llu %.6f %d %d %d %d %s %d %d %d %d %d %d %d ", static_cast<number>(before.frames),
        static_cast<number>(offset), static_cast<number>(frame.bytes()), before.seconds(), frame.kbps,
        frame.padding, frame.mode, frame.bound,
        frame.crc == 0                    ? "-"
        : (frame.faults & fault_crc) != 0 ? "wrong"
                                          : "right",
        b.header, b.crc, b.allocation, b.scfsi, b.scalefactors, b.samples, b.rest);
    if (frame.faults == 0) line += "-";
    for (unsigned rest = frame.faults; rest != 0; rest &= rest - 1)
        line += (rest == frame.faults ? "" : ", ") + std::string(fault_text(rest));
    return line + "\n";
}

} // namespace tools
