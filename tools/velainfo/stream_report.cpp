#include "velainfo/stream_report.hpp"

#include "common/failure.hpp"
#include "parser/standard_tables.hpp"
#include "settings/names.hpp"

#include <algorithm>
#include <bit>
#include <string_view>

namespace tools {

const std::array<const char *, stream_report::fields> field_names{
    "version", "layer", "crc", "kbps", "rate", "private", "mode", "copyright", "original", "emphasis"};

void padding_tracker::add(const stream_header &header) {
    if (header.slot_rest() == 0) return;
    needed = true;
    if (header.kbps != kbps_) {
        kbps_ = header.kbps;
        sum_ = lowest_ = highest_ = 0;
    }
    sum_ += header.padding * header.rate - header.slot_rest();
    lowest_ = std::min(lowest_, sum_);
    highest_ = std::max(highest_, sum_);
    worst = std::max(worst, static_cast<double>(highest_ - lowest_) / header.rate);
}

int stream_report::usual(field which) const {
    const auto less = [](const auto &a, const auto &b) { return a.second < b.second; };
    const auto &counts = values[which];
    return counts.empty() ? 0 : std::ranges::max_element(counts, less)->first;
}

double stream_report::seconds() const {
    double sum = 0;
    for (const auto &[hertz, count] : samples)
        sum += static_cast<double>(count) / hertz;
    return sum;
}

const char *mode_text(int mode) {
    return name_of(mode_names, mode).text;
}

std::string value_text(stream_report::field which, int value) {
    switch (which) {
    case stream_report::mode:
        return mode_text(value);
    case stream_report::emphasis:
        return name_of(emphasis_names, value).name;
    case stream_report::layer:
        return value == 1 ? "I" : "II";
    default:
        return std::to_string(value);
    }
}

double bits_per_sample(int layer, int steps) {
    if (steps == 0) return 0;
    return code_bits_of(layer, steps) / (is_grouped(layer, steps) ? 3.0 : 1.0);
}

report_builder::report_builder(std::string name, std::uint64_t base) : base_(base) {
    report_.name = std::move(name);
    report_.in_wav = base > 0;
}

void report_builder::add(const stream_piece &piece) {
    if (piece.is_frame) return add(piece, parse_frame(piece.bytes));
    close_gap(false); // never two in a row; if there were, none would be lost
    report_.bytes += piece.length;
    gap_ = piece;
    std::ranges::copy(piece.bytes.first(std::min(piece.bytes.size(), gap_head_.size())),
                      gap_head_.begin());
    gap_->bytes = std::span(gap_head_).first(std::min(piece.bytes.size(), gap_head_.size()));
}

void report_builder::add(const stream_piece &piece, const parsed_frame &frame) {
    close_gap(false);
    stream_report &r = report_;
    const stream_event here{.kind = "fault",
                            .offset = base_ + piece.offset,
                            .length = piece.length,
                            .frame = r.frames,
                            .seconds = r.seconds(),
                            .text = {}};
    if (last_ && !last_->same_kind(frame)) {
        stream_event change = here;
        change.kind = "change";
        change.is_damage = false;
        change.text = "another kind of stream begins";
        note(change);
    }
    last_ = frame;
    if (frame.crc == 1) ++((frame.faults & fault_crc) != 0 ? r.crc_wrong : r.crc_right);
    // Whatever is written in a damaged frame is not the stream's.
    if (frame.faults == 0 || r.frames == 0) add_values(frame);
    if (frame.faults == 0) add_side_information(frame);
    if (frame.faults != 0) {
        ++r.damaged_frames;
        for (unsigned rest = frame.faults; rest != 0; rest &= rest - 1) {
            ++r.faults[rest & ~(rest - 1)];
            stream_event fault = here;
            fault.text = fault_text(rest);
            note(fault);
        }
    }
    for (unsigned rest = frame.remarks; rest != 0; rest &= rest - 1)
        ++r.remarks[rest & ~(rest - 1)];
    r.bytes += piece.length;
    r.frame_bytes += piece.length;
    ++r.frames;
    r.samples[frame.rate] += static_cast<std::uint64_t>(frame.samples());
}

void report_builder::add_values(const parsed_frame &frame) {
    stream_report &r = report_;
    const int values[] = {frame.version,  frame.layer,       frame.crc,  frame.kbps,
                          frame.rate,     frame.private_bit, frame.mode, frame.copyright,
                          frame.original, frame.emphasis};
    for (std::size_t i = 0; i < r.values.size(); ++i)
        ++r.values[i][values[i]];
    if (frame.mode == 1) ++r.bounds[frame.bound];
    r.padded += static_cast<std::uint64_t>(frame.padding);
    r.padding.add(frame);
    r.sblimit = std::max(r.sblimit, frame.sblimit);
    r.channels = std::max(r.channels, frame.channels());
}

void report_builder::add_side_information(const parsed_frame &frame) {
    bit_totals &t = report_.bits;
    const bit_shares &b = frame.bits;
    const std::pair<std::uint64_t *, int> sums[] = {
        {&t.header, b.header},
        {&t.crc, b.crc},
        {&t.allocation, b.allocation},
        {&t.scfsi, b.scfsi},
        {&t.scalefactors, b.scalefactors},
        {&t.samples, b.samples},
        {(frame.remarks & remark_ancillary) != 0 ? &t.ancillary : &t.unused, b.rest}};
    for (const auto &[sum, bits] : sums)
        *sum += static_cast<std::uint64_t>(bits);
    for (int sb = 0; sb < frame.sblimit; ++sb) {
        for (int ch = 0; ch < frame.channels(); ++ch) {
            if (frame.steps[ch][sb] == 0) continue;
            report_.sample_bits[ch][sb] += bits_per_sample(frame.layer, frame.steps[ch][sb]);
            ++report_.allocated[ch][sb];
            if (frame.layer == 2) ++report_.scfsi[static_cast<unsigned>(frame.scfsi[ch][sb])];
        }
    }
}

/// Decides what the bytes between two frames, before the first or after the last one were.
void report_builder::close_gap(bool at_end) {
    if (!gap_) return;
    stream_report &r = report_;
    stream_event event{.kind = "gap",
                       .offset = base_ + gap_->offset,
                       .length = gap_->length,
                       .frame = r.frames,
                       .seconds = r.seconds(),
                       .text = {}};
    const std::string_view start(reinterpret_cast<const char *>(gap_->bytes.data()),
                                 gap_->bytes.size());
    const auto header = gap_->header;
    const bool cut = header && gap_->length < static_cast<std::uint64_t>(header->bytes());
    event.text = std::to_string(gap_->length) + " bytes that belong to no frame";
    if (cut) {
        event.kind = "cut";
        event.text = "a frame of " + std::to_string(header->bytes()) + " bytes ends after "
                     + std::to_string(gap_->length);
    } else if (r.frames == 0 || at_end) {
        event.kind = r.frames == 0 ? "leading" : "trailing";
        for (const std::string_view tag : {"ID3", "TAG", "APETAGEX", "LYRICSBEGIN"}) {
            if (!start.starts_with(tag)) continue;
            event.is_damage = false;
            event.text = std::to_string(gap_->length) + " bytes of a tag (" + std::string(tag) + ")";
        }
    }
    if (event.is_damage) r.lost_bytes += gap_->length;
    gap_.reset();
    r.padding.restart();
    note(std::move(event));
}

void report_builder::note(stream_event event) {
    ++report_.event_count;
    if (event.is_damage) ++report_.damage_count;
    if (report_.events.size() < stream_report::listed_events)
        report_.events.push_back(std::move(event));
}

stream_report report_builder::finish(const std::string &other_kind) {
    if (report_.frames == 0)
        throw failure(exit_code::input,
                      report_.name + " has no frame of MPEG audio, Layer I or II"
                          + (other_kind.empty() ? "" : "; it seems to be " + other_kind));
    close_gap(true);
    return std::move(report_);
}

} // namespace tools
