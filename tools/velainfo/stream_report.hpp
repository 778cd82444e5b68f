// What a stream is and whether it is sound, summed up frame by frame.
#pragma once

#include "parser/frame_parser.hpp"
#include "parser/frame_scanner.hpp"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tools {

/// What a container says about the stream in it.
struct container_facts {
    std::string name, description; ///< "none" and empty for a stream alone
    std::optional<int> track;      ///< of a container with several, as ffmpeg counts
    std::uint64_t base;            ///< where the stream begins in the file
    /// Of a WAV file; 0 where its header does not tell.
    int rate, channels;
    std::uint64_t promised; ///< bytes of sound
    bool is_empty;          ///< the header says that there is no sound
};

/// How often each value occurred.
using value_counts = std::map<int, std::uint64_t>;

/// A place where the stream is not what it should be.
struct stream_event {
    /// "leading", "trailing", "gap", "cut", "joined", "fault", "change", "container"
    std::string kind;
    bool is_damage;
    std::uint64_t offset, length; ///< bytes of the file
    std::uint64_t frame;          ///< frames before it
    double seconds;               ///< of sound before it
    std::string text;
    std::uint64_t frames; ///< how many in a row have the same fault
};

/// Padding against the exact average bitrate. A slot too many or too few at any time, and the deviation
/// passes one slot.
struct padding_tracker {
    bool needed;
    double worst; ///< greatest deviation over a stretch without damage, in slots

    void add(const stream_header &header);
    void restart() { kbps_ = 0; }
    bool is_exact() const { return worst <= 1; }

  private:
    int kbps_;                            ///< 0 before the first frame of a stretch
    std::int64_t sum_, lowest_, highest_; ///< in `rate`ths of a slot
};

/// Totals of bit_shares, with the rest told apart.
struct bit_totals {
    std::uint64_t header, crc, allocation, scfsi, scalefactors, samples, ancillary, unused;
};

/// Frames whose headers say the same.
struct header_use {
    std::uint64_t frames;
    std::uint64_t frame, offset; ///< the first of them, and where it begins
    double seconds;
};

/// What frames that can be relied on are like; all of it 0 at first.
struct stream_statistics {
    /// In the order of the header.
    enum field {
        version,
        layer,
        crc,
        kbps,
        rate,
        private_bit,
        mode,
        copyright,
        original,
        emphasis,
        fields
    };
    std::uint64_t counted; ///< frames
    std::map<std::array<int, fields>, header_use> headers;
    value_counts bounds; ///< of frames with intensity stereo
    std::uint64_t padded;
    padding_tracker padding;
    bit_totals bits;
    std::array<std::uint64_t, 4> scfsi;
    int sblimit, channels; ///< the greatest
    /// Sums over the frames of bits a sample: [channel][subband].
    double sample_bits[2][32];
};

using header_fields = std::array<int, stream_statistics::fields>;

/// A rule that the stream breaks, of a format or of the user's.
struct violation {
    std::string rule;            ///< what was asked for; empty for a format's
    std::string text;            ///< what is wrong
    std::uint64_t frame, offset; ///< where it begins
    double seconds;
};

struct stream_report : stream_statistics {
    static constexpr std::size_t listed_events = 1000;

    std::string name;
    container_facts container;
    std::uint64_t bytes, frame_bytes, frames;
    std::map<int, std::uint64_t> samples;    ///< per channel, by sampling rate
    std::array<value_counts, fields> values; ///< of `headers`, by field
    std::uint64_t crc_right, crc_wrong, damaged_frames, lost_bytes;
    std::map<unsigned, std::uint64_t> faults, remarks; ///< by bit
    std::vector<stream_event> events;                  ///< the first ones
    std::uint64_t event_count, damage_count;
    std::vector<violation> violations;

    bool is_constant(field which) const { return values[which].size() <= 1; }
    /// The most frequent value.
    int usual(field which) const;
    int usual_channels() const;
    int usual_samples() const; ///< a frame and channel
    bool is_sound() const { return damage_count == 0; }
    double seconds() const;
    double average_kbps() const { return static_cast<double>(frame_bytes) / seconds() / 125; }
};

/// The names of a report's fields, as text and JSON call them.
extern const std::array<const char *, stream_report::fields> field_names;
/// A value as text: "joint stereo", "50/15".
std::string value_text(stream_report::field which, int value);
const char *mode_text(int mode);
/// Bits that a sample costs: 0, 5/3, 7/3, 3, 10/3 .. 16.
double bits_per_sample(int layer, int steps);

class report_builder {
  public:
    report_builder(std::string name, container_facts container);

    void add(const stream_piece &piece);
    /// The same for a frame that is parsed already.
    void add(const stream_piece &piece, const parsed_frame &frame);
    /// @param other_kind      what the file seems to be instead
    /// @param was_interrupted  the user ended it: a frame that is cut there is no damage
    /// @throws failure when there was no frame
    stream_report finish(const std::string &other_kind, bool was_interrupted = false);

    /// Where a piece begins in the file.
    std::uint64_t offset_of(const stream_piece &piece) const {
        return report_.container.base + piece.offset;
    }

    const stream_report &so_far() const { return report_; }

  private:
    void add_statistics(const stream_event &here, const parsed_frame &frame);
    void add_side_information(const parsed_frame &frame);
    void close_gap(bool at_end);
    void close_tags(bool at_end);
    void judge_container();
    stream_event event_here(std::uint64_t offset, std::uint64_t length) const;
    void note(stream_event event);
    void note_fault(stream_event event);

    /// Tags one behind the other, whose meaning depends on what follows.
    struct tag_run {
        std::uint64_t offset, length;
        std::string names;
    };

    stream_report report_{};
    std::optional<stream_piece> gap_; ///< the last piece, whose meaning depends on the next
    std::optional<tag_run> tags_;
    std::optional<stream_header> last_;
    bool has_sound_frame_ = false, was_interrupted_ = false;
};

} // namespace tools
