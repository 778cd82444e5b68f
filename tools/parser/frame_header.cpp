#include "parser/frame_header.hpp"

#include "parser/bit_reader.hpp"
#include "parser/standard_tables.hpp"

#include <utility>

namespace tools {

std::optional<stream_header> read_header(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < header_bytes || bytes[0] != 0xFF) return std::nullopt;
    stream_header h;
    int sync = 0, id = 0, layer = 0, no_crc = 0, bitrate_index = 0, rate_index = 0;
    const std::pair<int *, int> fields[] = {
        {&sync, 12},       {&id, 1},         {&layer, 2},         {&no_crc, 1}, {&bitrate_index, 4},
        {&rate_index, 2},  {&h.padding, 1},  {&h.private_bit, 1}, {&h.mode, 2}, {&h.mode_extension, 2},
        {&h.copyright, 1}, {&h.original, 1}, {&h.emphasis, 2}};
    bit_reader reader(bytes);
    for (const auto &[field, bits] : fields)
        *field = static_cast<int>(reader.read(bits));
    if (sync != 0xFFF || layer < 2 || bitrate_index < 1 || bitrate_index > 14 || rate_index > 2)
        return std::nullopt;
    static constexpr int rates[] = {44100, 48000, 32000};
    h.version = 2 - id;
    h.layer = 4 - layer;
    h.crc = 1 - no_crc;
    h.rate = rates[rate_index] / h.version;
    h.kbps = bitrate_of(h.layer, bitrate_index, h.version);
    return h;
}

} // namespace tools
