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
    static constexpr int rates[] = {44100, 48000, 32000};
    const int version = 2 - id;
    return stream_header{.version = version,
                         .layer = 4 - layer,
                         .crc = 1 - no_crc,
                         .kbps = bitrate_of(4 - layer, bitrate_index, version),
                         .rate = rates[rate_index] / version,
                         .padding = next(1),
                         .private_bit = next(1),
                         .mode = next(2),
                         .mode_extension = next(2),
                         .copyright = next(1),
                         .original = next(1),
                         .emphasis = next(2)};
}

} // namespace tools
