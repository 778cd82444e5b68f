// The first four bytes of a frame (2.4.1.3 and 2.4.2.3 of ISO/IEC 11172-3 and 13818-3).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace tools {

struct stream_header {
    int version; ///< 1: ISO/IEC 11172-3; 2: the lower sampling rates of ISO/IEC 13818-3
    int layer;   ///< 1 or 2
    int crc;     ///< 1: a CRC follows the header
    int kbps;
    int rate;    ///< Hz
    int padding; ///< 1: the frame is one slot longer
    int private_bit;
    int mode;           ///< 0 stereo, 1 joint stereo, 2 dual channel, 3 mono
    int mode_extension; ///< joint stereo: the bound is 4 * (mode_extension + 1)
    int copyright, original;
    int emphasis; ///< 0 none, 1 50/15 microseconds, 2 reserved, 3 CCITT J.17

    int channels() const { return mode == 3 ? 1 : 2; }
    int samples() const { return layer == 1 ? 384 : 1152; } ///< per channel
    int slot_bytes() const { return layer == 1 ? 4 : 1; }
    /// Slots of a frame at this bitrate without padding: the whole ones, and what is left over in
    /// `rate`ths of a slot.
    int whole_slots() const { return slot_rate() / rate; }
    int slot_rest() const { return slot_rate() % rate; }
    /// The whole frame, 24 to 1729.
    int bytes() const { return (whole_slots() + padding) * slot_bytes(); }

    /// What decoders cannot change from frame to frame without starting anew.
    bool same_kind(const stream_header &other) const {
        return version == other.version && layer == other.layer && rate == other.rate
               && crc == other.crc && channels() == other.channels();
    }

  private:
    int slot_rate() const { return samples() / 8 / slot_bytes() * 1000 * kbps; }
};

inline constexpr int header_bytes = 4;
inline constexpr int longest_frame = 1729;

/// None when no frame of Layer I or II begins with these bytes, or one in free format.
std::optional<stream_header> read_header(std::span<const std::uint8_t> bytes);

} // namespace tools
