#include "parser/frame_header.hpp"

#include "parser/bit_reader.hpp"
#include "parser/standard_tables.hpp"

namespace tools {

std::optional<stream_header> read_header(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < header_bytes || bytes[0] != 0xFF) return std::nullopt;
    bit_reader reader(bytes);
    const auto next = [&](int bits) { return static_cast<int>(reader.read(bits)); };
    const int sync = next(12), id = next(1), layer = next(2), no_crc = next(1), bitrate_index = next(4),
              rate_index = next(2);
    if (sync != 0xFFF || layer < 2 || bitrate_index < 1 || bitrate_index > 14 || rate_index > 2)
        return std::nullopt;
    stream_header h;
    h.padding = next(1);
    h.private_bit = next(1);
    h.mode = next(2);
    h.mode_extension = next(2);
    h.copyright = next(1);
    h.original = next(1);
    h.emphasis = next(2);
    static constexpr int rates[] = {44100, 48000, 32000};
    h.version = 2 - id;
    h.layer = 4 - layer;
    h.crc = 1 - no_crc;
    h.rate = rates[rate_index] / h.version;
    h.kbps = bitrate_of(h.layer, bitrate_index, h.version);
    return h;
}

} // namespace tools
