#include "velainfo/stream_report.hpp"

#include "common/failure.hpp"
#include "parser/standard_tables.hpp"
#include "settings/names.hpp"

#include <algorithm>
#include <span>

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
    return std::ranges::max_element(counts, less)->first;
}

int stream_report::usual_channels() const {
    return usual(mode) == 3 ? 1 : 2;
}

int stream_report::usual_samples() const {
    return usual(layer) == 1 ? 384 : 1152;
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

report_builder::report_builder(std::string name, container_facts container) {
    report_.name = std::move(name);
    report_.container = std::move(container);
}

stream_event report_builder::event_here(std::uint64_t offset, std::uint64_t length) const {
    return {.kind = "gap",
            .is_damage = true,
            .offset = report_.container.base + offset,
            .length = length,
            .frame = report_.frames,
            .seconds = report_.seconds(),
            .text = {},
            .frames = 0};
}

void report_builder::add(const stream_piece &piece) {
    if (piece.is_frame) return add(piece, parse_frame(piece.bytes));
    close_gap(false);
    report_.bytes += piece.length;
    if (!piece.tag || piece.length < piece.tag->length) {
        close_tags(false);
        gap_ = piece;
        return;
    }
    if (!tags_) tags_ = {.offset = piece.offset, .length = 0, .names = {}};
    tags_->length += piece.length;
    // An input of tags alone must not fill the memory.
    const std::string name(piece.tag->name);
    if (tags_->names.find(name) == std::string::npos)
        tags_->names += (tags_->names.empty() ? "" : ", ") + name;
}

void report_builder::add(const stream_piece &piece, const parsed_frame &frame) {
    close_gap(false);
    close_tags(false);
    stream_report &r = report_;
    const stream_event here = event_here(piece.offset, piece.length);
    if (last_ && !last_->same_kind(frame)) {
        stream_event change = here;
        change.kind = "change";
        change.is_damage = false;
        change.text = "another kind of stream begins";
        note(std::move(change));
    }
    last_ = frame;
    if (frame.crc == 1) ++((frame.faults & fault_crc) != 0 ? r.crc_wrong : r.crc_right);
    add_statistics(here, frame);
    if (frame.faults != 0) ++r.damaged_frames;
    for (unsigned rest = frame.faults; rest != 0; rest &= rest - 1) {
        ++r.faults[rest & ~(rest - 1)];
        stream_event fault = here;
        fault.kind = "fault";
        fault.text = fault_text(rest);
        note_fault(std::move(fault));
    }
    for (unsigned rest = frame.remarks; rest != 0; rest &= rest - 1)
        ++r.remarks[rest & ~(rest - 1)];
    r.bytes += piece.length;
    r.frame_bytes += piece.length;
    ++r.frames;
    r.samples[frame.rate] += static_cast<std::uint64_t>(frame.samples());
}

/// Whatever is written in a damaged frame is not the stream's. Only where no frame is sound those count
/// of which nothing but the CRC is wrong: a writer that gets the CRC wrong does so in every frame.
void report_builder::add_statistics(const stream_event &here, const parsed_frame &frame) {
    if (frame.faults == 0 && !has_sound_frame_) {
        static_cast<stream_statistics &>(report_) = {};
        has_sound_frame_ = true;
    }
    const bool is_parsed = (frame.faults & ~unsigned{fault_crc}) == 0;
    if (frame.faults != 0 && (has_sound_frame_ || (!is_parsed && report_.counted > 0))) return;
    stream_statistics &s = report_;
    ++s.counted;
    header_use &use =
        s.headers[{frame.version, frame.layer, frame.crc, frame.kbps, frame.rate, frame.private_bit,
                   frame.mode, frame.copyright, frame.original, frame.emphasis}];
    if (use.frames++ == 0) {
        use.frame = here.frame;
        use.offset = here.offset;
        use.seconds = here.seconds;
    }
    if (frame.mode == 1) ++s.bounds[frame.bound];
    s.padded += static_cast<std::uint64_t>(frame.padding);
    s.padding.add(frame);
    s.sblimit = std::max(s.sblimit, frame.sblimit);
    s.channels = std::max(s.channels, frame.channels());
    if (is_parsed) add_side_information(frame);
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
            if (frame.layer == 2) ++report_.scfsi[static_cast<unsigned>(frame.scfsi[ch][sb])];
        }
    }
}

/// Decides what the bytes between two frames, before the first or after the last one were.
void report_builder::close_gap(bool at_end) {
    if (!gap_) return;
    stream_report &r = report_;
    stream_event event = event_here(gap_->offset, gap_->length);
    const std::string length = std::to_string(gap_->length);
    const auto header = gap_->header;
    event.text = length + " bytes that belong to no frame";
    if (gap_->tag) {
        event.kind = "cut";
        event.text = "a tag (" + std::string(gap_->tag->name) + ") of "
                     + std::to_string(gap_->tag->length) + " bytes ends after " + length;
    } else if (header && gap_->length < static_cast<std::uint64_t>(header->bytes())) {
        event.kind = "cut";
        event.text = "a frame of " + std::to_string(header->bytes()) + " bytes ends after " + length;
    } else if (r.frames == 0 || at_end) {
        event.kind = r.frames == 0 ? "leading" : "trailing";
    }
    if (at_end && was_interrupted_ && event.kind == "cut") {
        event.is_damage = false;
        event.text += ", where it was interrupted";
    } else {
        r.lost_bytes += gap_->length;
    }
    gap_.reset();
    r.padding.restart();
    note(std::move(event));
}

/// Tags belong to the start or the end of a file; between frames two files meet.
void report_builder::close_tags(bool at_end) {
    if (!tags_) return;
    stream_event event = event_here(tags_->offset, tags_->length);
    event.text = std::to_string(tags_->length) + " bytes of a tag (" + tags_->names + ")";
    event.is_damage = report_.frames > 0 && !at_end;
    event.kind = report_.frames == 0 ? "leading" : at_end ? "trailing" : "joined";
    if (event.is_damage) event.text += " between frames: one file was put behind another";
    tags_.reset();
    note(std::move(event));
}

void report_builder::judge_container() {
    const container_facts &c = report_.container;
    const auto tell = [&](const std::string &text) {
        stream_event event{};
        event.kind = "container";
        event.is_damage = true;
        event.text = "the header of the WAV file " + text;
        note(std::move(event));
    };
    const auto differs = [&](const char *what, int says, int is) {
        if (says != 0 && says != is)
            tell("says " + std::to_string(says) + ' ' + what + ", its frames have "
                 + std::to_string(is));
    };
    differs("Hz", c.rate, report_.usual(stream_report::rate));
    differs("channels", c.channels, report_.usual_channels());
    if (c.is_empty) tell("says that there is no sound in it");
    if (c.promised > report_.bytes)
        tell("promises " + std::to_string(c.promised) + " bytes of sound, "
             + std::to_string(c.promised - report_.bytes) + " are missing");
}

void report_builder::note(stream_event event) {
    ++report_.event_count;
    if (event.is_damage) ++report_.damage_count;
    if (report_.events.size() < stream_report::listed_events)
        report_.events.push_back(std::move(event));
}

/// The same fault in the next frame is no place of its own.
void report_builder::note_fault(stream_event event) {
    for (stream_event &earlier : report_.events) {
        if (earlier.offset + earlier.length != event.offset || earlier.text != event.text
            || earlier.kind != "fault")
            continue;
        earlier.length += event.length;
        ++earlier.frames;
        return;
    }
    event.frames = 1;
    note(std::move(event));
}

stream_report report_builder::finish(const std::string &other_kind, bool was_interrupted) {
    stream_report &r = report_;
    was_interrupted_ = was_interrupted;
    if (r.frames == 0)
        throw failure(exit_code::input,
                      r.name + " has no frame of MPEG audio, Layer I or II"
                          + (other_kind.empty() ? "" : "; it seems to be " + other_kind));
    close_gap(true);
    close_tags(true);
    for (const auto &[header, use] : r.headers)
        for (std::size_t i = 0; i < header.size(); ++i)
            r.values[i][header[i]] += use.frames;
    judge_container();
    return std::move(r);
}

} // namespace tools
