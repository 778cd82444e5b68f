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

/// How often each value occurred.
using value_counts = std::map<int, std::uint64_t>;

/// A place where the stream is not what it should be.
struct stream_event {
    std::string kind; ///< "leading", "trailing", "gap", "cut", "fault", "change"
    bool is_damage = true;
    std::uint64_t offset = 0, length = 0; ///< bytes of the file
    std::uint64_t frame = 0;              ///< frames before it
    double seconds = 0;                   ///< of sound before it
    std::string text;
};

/// Padding against the exact average bitrate. A slot too many or too few at any time, and the deviation
/// passes one slot.
struct padding_tracker {
    bool needed = false;
    double worst = 0; ///< greatest deviation over a stretch without damage, in slots

    void add(const stream_header &header);
    void restart() { kbps_ = 0; }
    bool is_exact() const { return worst <= 1; }

  private:
    int kbps_ = 0;
    std::int64_t sum_ = 0, lowest_ = 0, highest_ = 0; ///< in `rate`ths of a slot
};

/// Totals of bit_shares, with the rest told apart.
struct bit_totals {
    std::uint64_t header = 0, crc = 0, allocation = 0, scfsi = 0, scalefactors = 0, samples = 0,
                  ancillary = 0, unused = 0;
};

struct stream_report {
    static constexpr std::size_t listed_events = 1000;

    std::string name;
    bool in_wav = false;
    std::uint64_t bytes = 0, frame_bytes = 0, frames = 0;
    std::map<int, std::uint64_t> samples; ///< per channel, by sampling rate
    // From here on of the sound frames only, but for the counts of damage.
    /// By field, in the order of the header.
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
    std::array<value_counts, fields> values;
    value_counts bounds; ///< of frames with intensity stereo
    std::uint64_t crc_right = 0, crc_wrong = 0, padded = 0, damaged_frames = 0, lost_bytes = 0;
    std::map<unsigned, std::uint64_t> faults, remarks; ///< by bit
    padding_tracker padding;
    bit_totals bits;
    std::array<std::uint64_t, 4> scfsi{};
    int sblimit = 0, channels = 0; ///< the greatest
    /// Sums over the frames: bits a sample, and frames with an allocation: [channel][subband].
    double sample_bits[2][32] = {};
    std::uint64_t allocated[2][32] = {};
    std::vector<stream_event> events; ///< the first ones
    std::uint64_t event_count = 0, damage_count = 0;
    std::vector<std::string> violations; ///< of the preset's rules

    bool is_constant(field which) const { return values[which].size() <= 1; }
    /// The most frequent value.
    int usual(field which) const;
    bool is_sound() const { return damage_count == 0; }
    double seconds() const;
    double average_kbps() const {
        return seconds() > 0 ? static_cast<double>(frame_bytes) / seconds() / 125 : 0;
    }
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
    /// @param base  added to every offset
    report_builder(std::string name, std::uint64_t base);

    void add(const stream_piece &piece);
    /// The same for a frame that is parsed already.
    void add(const stream_piece &piece, const parsed_frame &frame);
    /// @throws failure when there was no frame
    stream_report finish(const std::string &other_kind);

    const stream_report &so_far() const { return report_; }

  private:
    void add_values(const parsed_frame &frame);
    void add_side_information(const parsed_frame &frame);
    void close_gap(bool at_end);
    void note(stream_event event);

    stream_report report_;
    std::uint64_t base_;
    std::optional<stream_piece> gap_; ///< the last piece, whose meaning depends on the next
    std::array<std::uint8_t, 16> gap_head_{};
    std::optional<stream_header> last_;
};

} // namespace tools
