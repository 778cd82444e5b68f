#include "frame_list.hpp"

#include "oracle/standard_tables.hpp"

namespace velaenc_test {
namespace {

/// Length of the frame whose header is there (ISO/IEC 11172-3, 2.4.1.3 and 2.4.3.1); 0 for no header.
std::size_t frame_bytes(std::span<const std::uint8_t> header) {
    constexpr int rates[] = {44100, 48000, 32000, 0};
    if (header.size() < 4) return 0;
    const int layer = 4 - (header[1] >> 1 & 3), index = header[2] >> 4;
    const int rate = rates[header[2] >> 2 & 3], padding = header[2] >> 1 & 1;
    if (layer > 2 || index > 14 || rate == 0) return 0;
    const int kbps = oracle::bitrate_of(layer, index);
    return static_cast<std::size_t>(layer == 1 ? 4 * (12000 * kbps / rate + padding)
                                               : 144000 * kbps / rate + padding);
}

} // namespace

std::vector<frame> frames_of(const std::string &stream) {
    const std::span bytes(reinterpret_cast<const std::uint8_t *>(stream.data()), stream.size());
    std::vector<frame> frames;
    for (std::size_t offset = 0; offset < bytes.size(); offset += frames.back().bytes) {
        const std::size_t length = frame_bytes(bytes.subspan(offset));
        if (length == 0 || length > bytes.size() - offset) return {};
        frames.push_back({oracle::parse_frame(bytes.subspan(offset, length)), offset, length});
        if (!frames.back().error.empty()) return {};
    }
    return frames;
}

} // namespace velaenc_test
